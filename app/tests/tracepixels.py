"""Checks a picture of the window for a drawn trace: on the black trace area, enough pixels
coloured like the pitch trace (bright, not grey) must show."""
import struct
import sys
import zlib


def read_png(path):
    with open(path, "rb") as f:
        data = f.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    pos, idat, width, height, ctype = 8, b"", 0, 0, 0
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, ctype = struct.unpack(">IIBB", body[:10])
            assert depth == 8, "8-bit channels expected"
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    channels = {2: 3, 6: 4}[ctype]
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, prev, i = [], bytearray(stride), 0
    for _ in range(height):
        f, line = raw[i], bytearray(raw[i + 1:i + 1 + stride])
        i += 1 + stride
        for x in range(stride):
            a = line[x - channels] if x >= channels else 0
            b, c = prev[x], prev[x - channels] if x >= channels else 0
            if f == 1:
                line[x] = (line[x] + a) & 255
            elif f == 2:
                line[x] = (line[x] + b) & 255
            elif f == 3:
                line[x] = (line[x] + (a + b) // 2) & 255
            elif f == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[x] = (line[x] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(line)
        prev = line
    return width, height, channels, rows


def main(path):
    width, height, channels, rows = read_png(path)

    def dark(line, x):
        return line[x * channels] + line[x * channels + 1] + line[x * channels + 2] < 30

    # The trace area: the rows and columns that are mostly black canvas.
    dark_rows = [y for y, line in enumerate(rows)
                 if sum(dark(line, x) for x in range(width)) > width // 2]
    if len(dark_rows) < height // 3:
        sys.exit("smoke: no trace area in the picture")
    dark_cols = [x for x in range(width)
                 if sum(dark(rows[y], x) for y in dark_rows) > len(dark_rows) // 2]
    top, bottom, left, right = dark_rows[0], dark_rows[-1], dark_cols[0], dark_cols[-1]

    # Trace pixels are coloured (sharp red, flat blue): grey grid lines are not. A needle or a
    # selection edge is one column; a trace runs across many.
    columns = set()
    for y in range(top, bottom + 1):
        line = rows[y]
        for x in range(left, right + 1):
            r, g, b = line[x * channels:x * channels + 3]
            if max(r, g, b) > 150 and max(r, g, b) - min(r, g, b) > 60:
                columns.add(x)
    print(f"{path}: trace area {right - left + 1}x{bottom - top + 1}, "
          f"trace in {len(columns)} columns")
    if len(columns) < 100:
        sys.exit("smoke: no trace drawn")


main(sys.argv[1])
