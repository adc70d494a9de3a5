"""Turns Bach10's annotations (MATLAB files) into one plain-text pitch file per part.

Usage: convert-bach10.py DATASET_FOLDER OUTPUT_FOLDER > parts.txt

Each piece's NN-Name-GTF0s.mat holds the annotated pitch of its four parts (rows: violin,
clarinet, saxophone, bassoon) as MIDI note numbers, 0 where none, one column per analysis frame:
frames 46 ms long, 10 ms apart, the first centred 23 ms into the sound. NN-Name-GTNotes.mat
groups each part's frames into notes (frame numbers counted from 1). A part's file lists the
frames that lie in a note and have a pitch, one a line: "centre_seconds midi note_index".
Frames between the annotated notes (onsets the annotators left out) are not listed.
A few low bassoon notes are annotated an octave above what is played and written (the tracker
behind the annotation took their second partial): a note whose annotated pitch lies an octave
from the score's note sounding at its middle (NN-Name.txt: onset ms, score ms, MIDI note, part)
is moved to the score's octave, and said so on standard error.
parts.txt gets one line per part: "instrument<TAB>wav path<TAB>pitch file path".
"""

import pathlib
import sys

import numpy
import scipy.io

INSTRUMENTS = [("violin", "violin"), ("clarinet", "clarinet"), ("saxophone", "saxphone"),
               ("bassoon", "bassoon")]
FIRST_CENTRE_SECONDS = 0.023
STEP_SECONDS = 0.010


def score_notes(piece):
    """Each part's (onset seconds, MIDI note) in time order, from the aligned score."""
    parts = [[] for _ in INSTRUMENTS]
    for line in (piece / f"{piece.name}.txt").read_text().split("\n"):
        fields = line.split()
        if len(fields) == 4:
            parts[int(fields[3]) - 1].append((int(fields[0]) / 1000.0, int(fields[2])))
    return [sorted(part) for part in parts]


def octave_off(midi, timeSeconds, written):
    """How many octaves midi lies from the written note sounding at timeSeconds (0 if none)."""
    sounding = [note for onset, note in written if onset <= timeSeconds]
    if not sounding:
        return 0
    octaves = round((midi - sounding[-1]) / 12.0)
    return octaves if abs(midi - sounding[-1] - 12.0 * octaves) < 0.5 else 0


def main():
    dataset, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    pieces = sorted(p for p in dataset.iterdir() if (p / f"{p.name}-GTF0s.mat").is_file())
    if not pieces:
        sys.exit(f"no Bach10 pieces in {dataset}")
    for piece in pieces:
        f0s = scipy.io.loadmat(piece / f"{piece.name}-GTF0s.mat")["GTF0s"]
        notes = scipy.io.loadmat(piece / f"{piece.name}-GTNotes.mat")["GTNotes"]
        written = score_notes(piece)
        for row, (instrument, spelling) in enumerate(INSTRUMENTS):
            wav = piece / f"{piece.name}-{spelling}.wav"
            lines = []
            for index, note in enumerate(notes[row, 0][:, 0]):
                frames = note[0].astype(int)
                middle = FIRST_CENTRE_SECONDS + STEP_SECONDS * (frames[0] + frames[-1] - 2) / 2
                octaves = octave_off(float(numpy.median(note[1])), middle, written[row])
                if octaves != 0:
                    print(f"{piece.name} {instrument}: the note at {middle:.2f} s is annotated "
                          f"{octaves:+d} octave from the score; moved", file=sys.stderr)
                for frame in frames:
                    midi = f0s[row, frame - 1]
                    if midi > 0:
                        centre = FIRST_CENTRE_SECONDS + STEP_SECONDS * (frame - 1)
                        lines.append(f"{centre:.3f} {midi - 12 * octaves:.6f} {index}\n")
            pitch = output / f"{piece.name}-{instrument}.txt"
            pitch.write_text("".join(lines))
            print(f"{instrument}\t{wav.resolve()}\t{pitch.resolve()}")


main()
