#!/usr/bin/env python3
"""Renders resources/demo.wav: a short violin melody in D major with some notes played
deliberately out of tune, so that a first look at Quorval shows both in-tune and off notes.

Needs the Debian packages fluidsynth, fluid-soundfont-gm and sox. The result is committed, so
this runs only when the demo is to change."""
import os
import struct
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOUNDFONT = "/usr/share/sounds/sf2/FluidR3_GM.sf2"
TICKS_PER_BEAT = 480
BEND_RANGE_CENTS = 200.0  # the General MIDI default of two semitones

# (MIDI note, beats, detune in cents): D major up and down, a few notes off.
MELODY = [
    (62, 1, 0), (64, 1, 0), (66, 1, +25), (67, 1, 0),
    (69, 2, 0), (71, 1, +15), (73, 1, -20), (74, 2, 0),
    (73, 1, 0), (71, 1, 0), (69, 1, -30), (67, 1, 0),
    (66, 1, 0), (64, 1, +10), (62, 3, 0),
]


def varlen(value):
    out = [value & 0x7F]
    value >>= 7
    while value:
        out.insert(0, (value & 0x7F) | 0x80)
        value >>= 7
    return bytes(out)


def bend_bytes(cents):
    value = int(round(8192 + 8191 * cents / BEND_RANGE_CENTS))
    value = max(0, min(16383, value))
    return bytes([0xE0, value & 0x7F, value >> 7])


def midi_file():
    events = bytearray()
    events += varlen(0) + bytes([0xFF, 0x51, 0x03]) + (600000).to_bytes(3, "big")  # 100 bpm
    events += varlen(0) + bytes([0xC0, 40])  # violin
    for note, beats, cents in MELODY:
        events += varlen(0) + bend_bytes(cents)
        events += varlen(0) + bytes([0x90, note, 90])
        events += varlen(beats * TICKS_PER_BEAT - 20) + bytes([0x80, note, 0])
        events += varlen(20) + bend_bytes(0)
    events += varlen(TICKS_PER_BEAT) + bytes([0xFF, 0x2F, 0x00])
    header = b"MThd" + struct.pack(">IHHH", 6, 0, 1, TICKS_PER_BEAT)
    return header + b"MTrk" + struct.pack(">I", len(events)) + bytes(events)


def main():
    with tempfile.TemporaryDirectory() as tmp:
        mid = os.path.join(tmp, "demo.mid")
        raw = os.path.join(tmp, "demo-stereo.wav")
        with open(mid, "wb") as f:
            f.write(midi_file())
        subprocess.run(["fluidsynth", "-ni", "-r", "44100", "-g", "0.8", "-F", raw, SOUNDFONT, mid],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["sox", raw, "-b", "16", "-c", "1", "-r", "44100",
                        os.path.join(HERE, "demo.wav"), "trim", "0", "14", "fade", "0", "14", "0.3", "gain", "-n", "-3"],
                       check=True)


if __name__ == "__main__":
    main()
