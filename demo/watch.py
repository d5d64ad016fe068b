"""Watching one run: tells each call as it comes, changes and goes, and gives the orders when they are due."""

import time

import machine

POLL_S = 0.3
# Longer than any scenario, also on a machine that has other things to do.
LIMIT_S = 120


def parties(call):
    remote = call["remote"] or "a number not yet known"
    if call["direction"] == "incoming":
        return f"from {remote}" + (f" for {call['local']}" if call["local"] else "")
    return f"to {remote}" + (f" by {call['local']}" if call["local"] else "")


class Watch:
    def __init__(self, run, say):
        self.run = run
        self.say = say
        self.seen = {}  # line -> (state, numbers, when that state began)
        self.due = [(call.line, order) for call in run.calls for order in call.orders]
        self.shown = 0  # calls in the last table

    def follow(self, scenario):
        """Until the scenario has ended and no call is left."""
        deadline = time.monotonic() + LIMIT_S
        while True:
            ended = scenario.poll()
            calls = machine.calls_in_progress()
            self.tell(calls)
            self.give_orders({call["line"]: call for call in calls})
            if ended is not None and (ended != 0 or not calls):
                break
            if time.monotonic() > deadline:
                scenario.kill()
                raise machine.Failed(f"the scenario {self.run.name} did not end within {LIMIT_S} s")
            time.sleep(POLL_S)
        if ended != 0:
            raise machine.Failed(f"the scenario {self.run.name} failed")

    def tell(self, calls):
        now = time.monotonic()
        present = {}
        for call in calls:
            numbers = parties(call)
            state, before, since = self.seen.get(call["line"], ("", "", now))
            if (call["state"], numbers) != (state, before):
                self.say(f"line {call['line']:2}  {numbers:27}  {call['state']}")
            present[call["line"]] = (call["state"], numbers, since if call["state"] == state else now)
        for line in sorted(self.seen.keys() - present.keys()):
            self.say(f"line {line:2}  is over")
        self.seen = present

    def give_orders(self, calls):
        now = time.monotonic()
        for line, order in list(self.due):
            state, _, since = self.seen.get(line, ("", "", now))
            earlier = any(other[0] == line for other in self.due[: self.due.index((line, order))])
            if earlier or state != order.state or now - since < order.seconds:
                continue
            self.show_all(calls)
            call_id = calls[line]["call_id"]
            answer = machine.order(order.word, call_id)
            self.say(f"$ morvex_ctl {order.word} {call_id}   {answer}")
            self.due.remove((line, order))

    def show_all(self, calls):
        """The table of calls, when there are more than it was last shown with."""
        if len(calls) > self.shown:
            self.say("$ morvex_ctl status")
            self.say(machine.status_text())
            self.shown = len(calls)
