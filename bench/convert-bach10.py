"""Turns Bach10's annotations (MATLAB files) into one plain-text pitch file per part.

Usage: convert-bach10.py DATASET_FOLDER OUTPUT_FOLDER > parts.txt

Each piece's NN-Name-GTF0s.mat holds the annotated pitch of its four parts (rows: violin,
clarinet, saxophone, bassoon) as MIDI note numbers, 0 where none, one column per analysis frame:
frames 46 ms long, 10 ms apart, the first centred 23 ms into the sound. NN-Name-GTNotes.mat
groups each part's frames into notes (frame numbers counted from 1). A part's file lists the
frames that lie in a note and have a pitch, one a line: "centre_seconds midi note_index".
Frames between the annotated notes (onsets the annotators left out) are not listed.
parts.txt gets one line per part: "instrument<TAB>wav path<TAB>pitch file path".
"""

import pathlib
import sys

import scipy.io

INSTRUMENTS = [("violin", "violin"), ("clarinet", "clarinet"), ("saxophone", "saxphone"),
               ("bassoon", "bassoon")]
FIRST_CENTRE_SECONDS = 0.023
STEP_SECONDS = 0.010


def main():
    dataset, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    pieces = sorted(p for p in dataset.iterdir() if (p / f"{p.name}-GTF0s.mat").is_file())
    if not pieces:
        sys.exit(f"no Bach10 pieces in {dataset}")
    for piece in pieces:
        f0s = scipy.io.loadmat(piece / f"{piece.name}-GTF0s.mat")["GTF0s"]
        notes = scipy.io.loadmat(piece / f"{piece.name}-GTNotes.mat")["GTNotes"]
        for row, (instrument, spelling) in enumerate(INSTRUMENTS):
            wav = piece / f"{piece.name}-{spelling}.wav"
            lines = []
            for index, note in enumerate(notes[row, 0][:, 0]):
                for frame in note[0].astype(int):
                    midi = f0s[row, frame - 1]
                    if midi > 0:
                        centre = FIRST_CENTRE_SECONDS + STEP_SECONDS * (frame - 1)
                        lines.append(f"{centre:.3f} {midi:.6f} {index}\n")
            pitch = output / f"{piece.name}-{instrument}.txt"
            pitch.write_text("".join(lines))
            print(f"{instrument}\t{wav.resolve()}\t{pitch.resolve()}")


main()
