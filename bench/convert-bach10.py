"""Turns Bach10's annotations (MATLAB files) into one plain-text pitch file per part.

Usage: convert-bach10.py DATASET_FOLDER OUTPUT_FOLDER > parts.txt

Each piece's NN-Name-GTF0s.mat holds the annotated pitch of its four parts (rows: violin,
clarinet, saxophone, bassoon) as MIDI note numbers, 0 where none, one column per analysis frame:
frames 46 ms long, 10 ms apart, the first centred 23 ms into the sound. NN-Name-GTNotes.mat
groups each part's frames into notes (frame numbers counted from 1). A part's file lists the
frames that lie in a note and have a pitch, one a line: "centre_seconds midi note_index".
Frames between the annotated notes (onsets the annotators left out) are not listed.
A few low bassoon notes are annotated an octave above what is played and written (the tracker
behind the annotation took their second partial): a frame whose annotated pitch lies an octave
from the score's note sounding at its time (NN-Name.txt: onset ms, score ms, MIDI note, part),
and is not the score's note 100 ms either side of it, is moved to the score's octave, and said
so on standard error. Where that moves most of an annotated note, by the same octaves, the whole
note is moved: the 100 ms at its ends, left alone by the rule above, had slipped with the rest.
parts.txt gets one line per part: "instrument<TAB>wav path<TAB>pitch file path".
"""

import pathlib
import sys

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


def octaves_off(midi, timeSeconds, written):
    """How many octaves midi lies from the written note sounding at timeSeconds; 0 if it is not
    an octave off, or if it is the written note 100 ms before or after (the score's times are
    approximate, and the annotation may be right about a note change the score puts later)."""
    around = []
    for t in (timeSeconds, timeSeconds - 0.1, timeSeconds + 0.1):
        sounding = [note for onset, note in written if onset <= t]
        if not sounding or abs(midi - sounding[-1]) < 0.5:
            return 0
        around.append(sounding[-1])
    octaves = round((midi - around[0]) / 12.0)
    return octaves if abs(midi - around[0] - 12.0 * octaves) < 0.5 else 0


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
                frames = []
                for frame in note[0].astype(int):
                    midi = f0s[row, frame - 1]
                    if midi > 0:
                        centre = FIRST_CENTRE_SECONDS + STEP_SECONDS * (frame - 1)
                        frames.append((centre, midi, octaves_off(midi, centre, written[row])))
                moved = [octaves for _, _, octaves in frames if octaves != 0]
                # Most of the note an octave off: its ends, which the score's times leave
                # undecided, slipped with the rest.
                whole = moved[0] if len(moved) * 2 > len(frames) and len(set(moved)) == 1 else 0
                if whole != 0:
                    frames = [(centre, midi, whole) for centre, midi, _ in frames]
                shifted = [centre for centre, _, octaves in frames if octaves != 0]
                if shifted:
                    print(f"{piece.name} {instrument}: {len(shifted)} frames from "
                          f"{shifted[0]:.2f} to {shifted[-1]:.2f} s moved to the score's octave"
                          + (" (the whole note)" if whole != 0 else ""), file=sys.stderr)
                lines += [f"{centre:.3f} {midi - 12 * octaves:.6f} {index}\n"
                          for centre, midi, octaves in frames]
            pitch = output / f"{piece.name}-{instrument}.txt"
            pitch.write_text("".join(lines))
            print(f"{instrument}\t{wav.resolve()}\t{pitch.resolve()}")


main()
