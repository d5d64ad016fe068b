"""The calls of the demo: what is said in them, and what must have become of each.

Line numbers are those that users see; docs/simulator.md tells how the channels of demo/cards.conf follow from them.
"""

from dataclasses import dataclass

INCOMING, OUTGOING = 0, 1
ALAW, GSM, MP3 = 554, 551, 801


@dataclass(frozen=True)
class Speech:
    """One speech: its file is <name>.al, as the scenarios play it."""

    name: str
    voice: str
    text: str


@dataclass(frozen=True)
class Order:
    """An order by morvex_ctl, so many seconds after the call came into the given state."""

    state: str
    seconds: float
    word: str


@dataclass(frozen=True)
class Call:
    """One call, and the row and the file that must come of it. Without speech it must leave nothing."""

    line: int
    title: str
    direction: int
    remote: str
    local: str = ""
    encoding: int = ALAW
    speeches: tuple = ()  # two: the directions of a trunk, one in each channel of the file
    sides: tuple = ("",)  # who says each of them, where there are two
    line_name: str = ""
    orders: tuple = ()

    @property
    def silenced(self):
        return any(order.word == "silence" for order in self.orders)


@dataclass(frozen=True)
class Run:
    """One life of the daemon; the encoding of recordings is read at its start."""

    name: str  # of the scenario demo/<name>.sim
    title: str
    settings: dict  # rows of Configs by part
    calls: tuple


COMMON_SETTINGS = {
    "s": {"crec": "1", "RecMinDur": "3", "CalcChecksum": "sha256"},
    "o": {"SilOnDemand": "1", "RecStereo": "1"},
    "crec": {
        "Syn1001_RecOnDmd": "0,0,0,0,1",  # line 5 records on demand
        "Syn1002_PBXType": "Siemens Hicom/Hipath",
        "Syn1003_PBXType": "NEC",
    },
}

# -- what is said ----------------------------------------------------------------------------------------------------

BAKERY = Speech("mp3", "en-us+f2", "Hello, this is the bakery. Your order of twenty rolls is ready to be fetched.")
RECEPTION = Speech("gsm", "en-gb+m3", "Reception speaking. I would like to book a room for the ninth of May, please.")
INVOICE = Speech(
    "incoming",
    "en-us+m1",
    "Good morning, I am calling about the invoice of last week. The third item is listed twice,"
    " could you please have a look at it?",
)
GARAGE = Speech(
    "outgoing", "en-gb+f4", "Hello, is that the garage? My car makes a strange noise whenever I turn to the left."
)
PAYMENT = Speech(
    "silenced",
    "en-us+f3",
    "I would like to pay by card. The number is five five five zero, one two three four,"
    " eight eight seven seven, zero zero nine nine. Thank you, and good bye until the next time.",
)
AGREEMENT = Speech("demanded", "en-gb+m7", "From here on this call may be recorded. The answer is yes, I agree.")
MEETING = Speech(
    "siemens", "en-us+m5", "Miller here. The meeting moves to Thursday at half past ten, in the small room."
)
PARTS = Speech("nec", "en-gb+f1", "Good afternoon Mister Baker, the parts have left our store this morning.")
CALLER = Speech("caller", "en-us+f5", "Hello, I would like to speak to somebody in sales about your new price list.")
CALLED = Speech(
    "called", "en-gb+m2", "You are in the right place, madam. Which of our products are you interested in?"
)

# -- who calls whom --------------------------------------------------------------------------------------------------

MP3_CALLS = (Call(2, "stored as MP3", INCOMING, "0405550199", encoding=MP3, speeches=(BAKERY,)),)

GSM_CALLS = (
    Call(
        1,
        "stored as GSM, under the name of its line",
        OUTGOING,
        "0015550123",
        encoding=GSM,
        speeches=(RECEPTION,),
        line_name="Reception",
    ),
)

ALAW_CALLS = (
    Call(1, "answered, caller id", INCOMING, "0301234567", speeches=(INVOICE,)),
    Call(2, "dialled by DTMF", OUTGOING, "089445566", speeches=(GARAGE,)),
    Call(3, "too short to keep", OUTGOING, "110"),
    Call(
        4,
        "silenced for a while",
        INCOMING,
        "0611987654",
        speeches=(PAYMENT,),
        orders=(Order("recording", 2.0, "silence"), Order("silenced", 2.0, "sound")),
    ),
    Call(
        5, "recorded on demand", INCOMING, "0201445566", speeches=(AGREEMENT,), orders=(Order("waiting", 1.0, "start"),)
    ),
    Call(9, "station of a Siemens PBX", INCOMING, "0711223344", speeches=(MEETING,)),
    Call(17, "station of an NEC PBX", OUTGOING, "0351778899", speeches=(PARTS,)),
    Call(
        25,
        "trunk, both directions in stereo",
        INCOMING,
        "0221555123",
        local="200",
        speeches=(CALLER, CALLED),
        sides=("left: the caller", "right: the party called"),
    ),
)

RUNS = (
    Run(
        "mp3",
        "recordings stored as MP3",
        {"o": {"RecEnc": "mp3"}, "crec": {"LineNameInFileName": "0"}},
        MP3_CALLS,
    ),
    Run(
        "gsm",
        "recordings stored as GSM, with the name of the line in the file name",
        {"o": {"RecEnc": "gsm"}, "crec": {"LineNameInFileName": "1"}},
        GSM_CALLS,
    ),
    Run(
        "alaw",
        "recordings stored as they come, in A-law; trunks in stereo",
        {"o": {"RecEnc": "alaw"}, "crec": {"LineNameInFileName": "0"}},
        ALAW_CALLS,
    ),
)

LINE_NAMES = {call.line: call.line_name for run in RUNS for call in run.calls if call.line_name}
