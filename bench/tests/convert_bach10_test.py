"""The converter of Bach10's annotations, on a made-up piece: which frames it moves to the
score's octave and which it leaves as annotated. Exits 77 (skipped) without scipy."""

import pathlib
import subprocess
import sys
import tempfile

try:
    import numpy
    import scipy.io
except ImportError:
    print("scipy is not installed: skipped")
    sys.exit(77)

CONVERTER = pathlib.Path(__file__).resolve().parent.parent / "convert-bach10.py"


def frame_at(seconds):
    """The 1-based frame centred at seconds (frames 10 ms apart, the first at 23 ms)."""
    return int(round((seconds - 0.023) / 0.010)) + 1


def cell(items):
    """A MATLAB cell column of the given arrays."""
    out = numpy.empty((len(items), 1), dtype=object)
    for i, item in enumerate(items):
        out[i, 0] = item
    return out


def make_piece(folder):
    """One piece whose bassoon part holds three notes over four written ones:
    A (0.03-0.95 s) annotated D3 where D2 is written: a tracker's second partial for the whole note;
    B (1.03-2.30 s) annotated D3 where D3 is written until 2 s, then D2: one note for two;
    C (3.03-3.50 s) annotated G2 as written."""
    piece = folder / "01-Made"
    piece.mkdir()
    frames = frame_at(3.6)
    f0s = numpy.zeros((4, frames))
    spans = {"A": (0.033, 0.953, 50.1), "B": (1.033, 2.303, 50.2), "C": (3.033, 3.503, 43.0)}
    bassoon = []
    for start, end, midi in spans.values():
        numbers = numpy.arange(frame_at(start), frame_at(end) + 1)
        f0s[3, numbers - 1] = midi
        bassoon.append(numbers.reshape(1, -1).astype(float))
    # The other parts: one short note each, as written.
    others = []
    for row, midi in enumerate((74.0, 69.0, 62.0)):
        numbers = numpy.arange(frame_at(0.033), frame_at(0.5) + 1)
        f0s[row, numbers - 1] = midi
        others.append(cell([numbers.reshape(1, -1).astype(float)]))
    notes = numpy.empty((4, 1), dtype=object)
    for row in range(3):
        notes[row, 0] = others[row]
    notes[3, 0] = cell(bassoon)
    scipy.io.savemat(piece / "01-Made-GTF0s.mat", {"GTF0s": f0s})
    scipy.io.savemat(piece / "01-Made-GTNotes.mat", {"GTNotes": notes})
    score = ["0\t900\t74\t1", "0\t900\t69\t2", "0\t900\t62\t3",
             "0\t900\t38\t4", "1000\t1900\t50\t4", "2000\t2900\t38\t4", "3000\t3900\t43\t4"]
    (piece / "01-Made.txt").write_text("\r\n".join(score) + "\r\n")
    return piece


def main():
    with tempfile.TemporaryDirectory() as temp:
        root = pathlib.Path(temp)
        (root / "data").mkdir()
        (root / "out").mkdir()
        make_piece(root / "data")
        run = subprocess.run([sys.executable, str(CONVERTER), str(root / "data"), str(root / "out")],
                             capture_output=True, text=True, check=True)
        parts = [line.split("\t") for line in run.stdout.splitlines()]
        assert [p[0] for p in parts] == ["violin", "clarinet", "saxophone", "bassoon"], parts
        rows = [line.split() for line in (root / "out" / "01-Made-bassoon.txt").read_text().splitlines()]
        pitch = {(int(note), round(float(t), 3)): float(midi) for t, midi, note in rows}
        failures = []

        def expect(note, seconds, midi, why):
            got = pitch.get((note, round(seconds, 3)))
            if got is None or abs(got - midi) > 1e-6:
                failures.append(f"note {note} at {seconds:.3f} s: {got}, expected {midi} ({why})")

        # A: every frame moved, the first and last 100 ms as well.
        for seconds in (0.033, 0.083, 0.503, 0.903, 0.953):
            expect(0, seconds, 38.1, "the whole note slipped")
        # B: only the frames past 100 ms into the written D2; the rest is the written D3.
        for seconds in (1.033, 1.503, 2.003, 2.093):
            expect(1, seconds, 50.2, "the written note, or within 100 ms of a change")
        for seconds in (2.113, 2.303):
            expect(1, seconds, 38.2, "an octave from the written note on both sides")
        # C: as annotated.
        for seconds in (3.033, 3.503):
            expect(2, seconds, 43.0, "the written note")
        if "(the whole note)" not in run.stderr:
            failures.append("no word of the whole note on standard error: " + run.stderr)
        if failures:
            print("\n".join(failures))
            sys.exit(1)
        print(f"{len(rows)} bassoon frames as expected")


main()
