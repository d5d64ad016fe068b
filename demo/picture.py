"""Pictures of a recording: waveforms of what was played and what was recorded, and the spectrogram of the latter.

They are drawn in greys, with what is marked hatched, so that neither print nor eyes need colours. Each function returns
the words that stand for the picture where it is not seen.
"""

import os
from dataclasses import dataclass

os.environ.setdefault("MPLCONFIGDIR", "/tmp/matplotlib")  # nothing is written to anybody's home

import matplotlib  # noqa: E402  it looks for its folder at once
import numpy  # noqa: E402
from matplotlib import mlab, pyplot  # noqa: E402

from compare import RATE  # noqa: E402

matplotlib.use("Agg")
# The same sound gives the same file.
matplotlib.rcParams.update({"svg.hashsalt": "demo", "svg.fonttype": "none", "axes.axisbelow": True})

WIDTH = 9  # inches
COLUMNS = 900  # of a waveform
LOUD = 0.01  # of full scale; less than that is silence
WINDOW = 256  # samples of a column of a spectrogram
WHITE_DB, BLACK_DB = -95, -35  # of full scale, in a hertz


@dataclass(frozen=True)
class Track:
    """A sound and where it stands in the recording."""

    name: str
    sound: numpy.ndarray  # -1 to 1
    start_s: float = 0.0

    @property
    def loud_s(self):
        """When it is to be heard first and last; None when never."""
        loud = numpy.flatnonzero(numpy.abs(self.sound) > LOUD)
        return None if not len(loud) else (self.start_s + loud[0] / RATE, self.start_s + (loud[-1] + 1) / RATE)

    @property
    def words(self):
        if self.loud_s is None:
            return f"{self.name}: nothing but silence."
        first, last = self.loud_s
        return f"{self.name}: sound from {first:.1f} to {last:.1f} s."


def sound(samples):
    return numpy.array(samples) / 32768


def waveforms(tracks, seconds, silenced_s, file):
    """One below the other on one axis of time; the stretch that is silenced is hatched in the last."""
    figure, rows = pyplot.subplots(
        len(tracks), sharex=True, squeeze=False, figsize=(WIDTH, 0.6 + 1.2 * len(tracks)), layout="constrained"
    )
    for axes, track in zip(rows[:, 0], tracks):
        step = max(1, -(-len(track.sound) // COLUMNS))
        columns = numpy.pad(track.sound, (0, -len(track.sound) % step)).reshape(-1, step)
        times = track.start_s + numpy.arange(len(columns)) * step / RATE
        axes.fill_between(times, columns.min(axis=1), columns.max(axis=1), color="0.2", linewidth=0.5)
        axes.set_title(track.name, loc="left", fontsize=10)
        axes.set(ylim=(-1, 1), yticks=(-1, 0, 1))
        axes.grid(axis="x", color="0.8")
    if silenced_s:
        first, last = silenced_s
        rows[-1, 0].axvspan(first, last, facecolor="0.9", edgecolor="0.3", hatch="//", zorder=0)
        rows[-1, 0].set_title(f"{tracks[-1].name}; hatched: silenced, {first:.1f} to {last:.1f} s", loc="left", fontsize=10)
    rows[-1, 0].set(xlim=(0, seconds), xlabel="seconds from the beginning of the recording")
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)
    words = f"Waveforms, one below the other, over {seconds:.1f} s. " + " ".join(track.words for track in tracks)
    if silenced_s:
        words += " Hatched in the last, and without sound: {:.1f} to {:.1f} s.".format(*silenced_s)
    return words


def spectrogram(tracks, seconds, file):
    """One below the other on one axis of time; the darker the louder."""
    figure, rows = pyplot.subplots(
        len(tracks), sharex=True, squeeze=False, figsize=(WIDTH, 0.6 + 2.0 * len(tracks)), layout="constrained"
    )
    for axes, track in zip(rows[:, 0], tracks):
        power, _, _ = mlab.specgram(track.sound, NFFT=WINDOW, Fs=RATE, noverlap=WINDOW // 2)
        level = 10 * numpy.log10(numpy.maximum(power, 1e-12))
        image = axes.imshow(
            level,
            origin="lower",
            aspect="auto",
            cmap="gray_r",
            vmin=WHITE_DB,
            vmax=BLACK_DB,
            extent=(0, len(track.sound) / RATE, 0, RATE / 2),
        )
        axes.set_title(track.name, loc="left", fontsize=10)
        axes.set(ylabel="Hz", yticks=range(0, RATE // 2 + 1, 1000))
    rows[-1, 0].set(xlim=(0, seconds), xlabel="seconds from the beginning of the recording")
    figure.colorbar(image, ax=rows[:, 0].tolist(), label="dB of full scale, in a Hz")
    figure.savefig(file, dpi=100, metadata={"Software": None})
    pyplot.close(figure)
    words = f"Spectrogram over {seconds:.1f} s, from 0 to {RATE // 2} Hz upwards; the darker the louder. "
    return words + "Speech shows as stripes, silence is white. " + " ".join(track.words for track in tracks)
