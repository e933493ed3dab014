#!/usr/bin/env python3
"""gralloc-layout --svg, checked from outside: the drawing parses as XML, has one group per
request and one rectangle per plane in the plane's proportions, puts the padding where the layout
says, renders with rsvg-convert to the size it declares with the padding colour inside the padding,
and the README's picture is what the tool draws today.

Run from the source tree: svg_check.py --tool build/bin/gralloc-layout
"""
import argparse
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET
import zlib

SVG = "{http://www.w3.org/2000/svg}"
PADDING = (0xF5, 0x85, 0x18)
PLANE0 = (0x4C, 0x78, 0xA8)
SESSION = "tools/examples/camera-session.txt"
PROFILES = "host/profiles"
# The README's picture and the command that draws it.
README_SVG = "docs/camera-session.svg"
README_ARGS = ["--profile", PROFILES + "/soc-a64.json", "-f", SESSION]
TOLERANCE = 0.002  # px: coordinates carry three decimals
RATIO_TOLERANCE = 0.001

failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
    return condition


def run(tool, args):
    result = subprocess.run([tool] + args, capture_output=True, text=True)
    if result.returncode not in (0, 5):
        raise SystemExit(f"{' '.join(args)}: exit {result.returncode}\n{result.stderr}")
    return result.stdout


def classes(element):
    return element.get("class", "").split()


def rects(element, cls):
    return [r for r in element.iter(SVG + "rect") if cls in classes(r)]


def box(rect):
    return tuple(float(rect.get(k)) for k in ("x", "y", "width", "height"))


def close(a, b):
    return abs(a - b) <= TOLERANCE


def same_ratio(a, b):
    return abs(a - b) <= RATIO_TOLERANCE * abs(b)


def request_groups(root):
    return [g for g in root.iter(SVG + "g") if "request" in classes(g)]


def check_planes(group, answer, where):
    """One rectangle per plane, stride across by rows down."""
    planes = rects(group, "plane")
    if not check(len(planes) == len(answer["planes"]), f"{where}: {len(planes)} plane rectangles"):
        return
    for rect, plane in zip(planes, answer["planes"]):
        _, _, w, h = box(rect)
        rows = plane["sizeBytes"] / plane["strideBytes"]
        check(same_ratio(w / h, plane["strideBytes"] / rows),
              f"{where} plane {rect.get('data-plane')}: {w} x {h} is not {plane['strideBytes']} x {rows}")


GENERIC_FONTS = {"serif", "sans-serif", "monospace"}


def check_self_contained(root, where):
    """No scripts, nothing fetched: no links, images, foreign content or named fonts."""
    for element in root.iter():
        tag = element.tag.replace(SVG, "")
        check(tag not in ("script", "image", "foreignObject", "style", "use", "a"),
              f"{where}: a <{tag}> element")
        for name, value in element.attrib.items():
            check("href" not in name and "url(" not in value and not name.startswith("on"),
                  f"{where}: <{tag} {name}={value!r}>")
            if name == "font-family":
                check(value in GENERIC_FONTS, f"{where}: font-family {value!r}")


def check_session(tool, tmp):
    """Every shipped profile: a group per request, a rectangle per plane."""
    for name in sorted(os.listdir(PROFILES)):
        if not name.endswith(".json"):
            continue
        out = os.path.join(tmp, name + ".svg")
        doc = json.loads(run(tool, ["--profile", f"{PROFILES}/{name}", "-f", SESSION, "--json",
                                    "--svg", out]))
        root = ET.parse(out).getroot()
        check_self_contained(root, name)
        groups = request_groups(root)
        check(len(groups) == len(doc["answers"]), f"{name}: {len(groups)} request groups")
        for group, answer in zip(groups, doc["answers"]):
            check_planes(group, answer, f"{name} request {group.get('data-request')}")


def check_compare(tool, tmp):
    """Side by side: two drawings per request, each with its profile's planes."""
    a, b = f"{PROFILES}/soc-a64.json", f"{PROFILES}/soc-b128.json"
    out = os.path.join(tmp, "compare.svg")
    run(tool, ["--compare", a, b, "-f", SESSION, "--svg", out])
    answers = [json.loads(run(tool, ["--profile", p, "-f", SESSION, "--json"]))["answers"]
               for p in (a, b)]
    root = ET.parse(out).getroot()
    groups = request_groups(root)
    check(len(groups) == len(answers[0]), f"compare: {len(groups)} request groups")
    for i, group in enumerate(groups):
        sides = [g for g in group.iter(SVG + "g") if "side" in classes(g)]
        if not check([s.get("data-side") for s in sides] == ["A", "B"], f"compare {i + 1}: sides"):
            continue
        for side, side_answers in zip(sides, answers):
            check_planes(side, side_answers[i], f"compare {i + 1} {side.get('data-side')}")
        # A and B stand side by side: B's drawing starts right of A's.
        xa = min(box(r)[0] for r in rects(sides[0], "plane"))
        xb = min(box(r)[0] for r in rects(sides[1], "plane"))
        check(xb > xa + max(box(r)[2] for r in rects(sides[0], "plane")), f"compare {i + 1}: B beside A")


def read_png(path):
    """Width, height and RGBA rows of an 8-bit RGBA or RGB PNG."""
    data = open(path, "rb").read()
    check(data[:8] == b"\x89PNG\r\n\x1a\n", "PNG signature")
    pos, idat, header = 8, b"", None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        chunk = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", chunk)
        elif kind == b"IDAT":
            idat += chunk
        pos += 12 + length
    width, height, depth, colour, _, _, interlace = header
    if depth != 8 or colour not in (2, 6) or interlace != 0:
        raise SystemExit(f"{path}: PNG form {depth}/{colour}/{interlace} not read here")
    channels = 4 if colour == 6 else 3
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for x in range(stride):
            left = line[x - channels] if x >= channels else 0
            up = previous[x]
            corner = previous[x - channels] if x >= channels else 0
            if kind == 1:
                line[x] = (line[x] + left) & 0xFF
            elif kind == 2:
                line[x] = (line[x] + up) & 0xFF
            elif kind == 3:
                line[x] = (line[x] + (left + up) // 2) & 0xFF
            elif kind == 4:
                p = left + up - corner
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - corner)
                predictor = left if pa <= pb and pa <= pc else up if pb <= pc else corner
                line[x] = (line[x] + predictor) & 0xFF
        rows.append(line)
        previous = line
    return width, height, channels, rows


def pixel(png, x, y):
    _, _, channels, rows = png
    return tuple(rows[int(y)][int(x) * channels:int(x) * channels + 3])


def check_nv12_padding(tool, tmp):
    """1100x700 NV12 on soc-a64: 1152-byte strides leave 52 bytes of each row as padding."""
    out = os.path.join(tmp, "nv12.svg")
    doc = json.loads(run(tool, ["--profile", f"{PROFILES}/soc-a64.json", "1100x700", "NV12",
                                "--json", "--svg", out]))
    answer = doc["answers"][0]
    root = ET.parse(out).getroot()
    groups = request_groups(root)
    if not check(len(groups) == 1, "NV12: one request group"):
        return
    check_planes(groups[0], answer, "NV12")
    planes = rects(groups[0], "plane")
    padding = rects(groups[0], "stride-padding")
    visible = rects(groups[0], "visible")
    # The visible image: 1100 luma bytes by 700 rows, 550 chroma pairs by 350 rows.
    expected = [(1100, 700), (1100, 350)]
    check(len(padding) == 2 and len(visible) == 2, "NV12: a visible and a padding area per plane")
    check(not rects(groups[0], "row-padding"), "NV12: no padding rows at height 700")
    for plane, pad, vis, json_plane, (row_bytes, rows) in zip(planes, padding, visible,
                                                              answer["planes"], expected):
        px, py, pw, ph = box(plane)
        scale = pw / json_plane["strideBytes"]
        x, y, w, h = box(pad)
        where = f"NV12 plane {plane.get('data-plane')} padding"
        check(close(x, px + row_bytes * scale), f"{where} starts at {x}")
        check(close(w, (json_plane["strideBytes"] - row_bytes) * scale), f"{where} is {w} wide")
        check(close(y, py) and close(h, rows * scale), f"{where} spans {y}..{y + h}")
        vx, vy, vw, vh = box(vis)
        check(close(vw, row_bytes * scale) and close(vh, rows * scale), f"{where}: visible {vw}x{vh}")

    # Rendered: the declared size, the padding colour inside the padding and not in the image.
    renderer = shutil.which("rsvg-convert")
    if not check(renderer is not None, "rsvg-convert (Debian librsvg2-bin) is not installed"):
        return
    png_path = os.path.join(tmp, "nv12.png")
    subprocess.run([renderer, out, "-o", png_path], check=True)
    png = read_png(png_path)
    check((png[0], png[1]) == (int(root.get("width")), int(root.get("height"))),
          f"PNG is {png[0]}x{png[1]}")
    x, y, w, h = box(padding[0])
    check(pixel(png, x + w / 2, y + h / 2) == PADDING, f"padding pixel is {pixel(png, x + w / 2, y + h / 2)}")
    vx, vy, vw, vh = box(visible[0])
    inside = pixel(png, vx + vw / 2, vy + vh / 2)
    check(inside != PADDING and inside == PLANE0, f"visible pixel is {inside}")


def check_readme_picture(tool, tmp):
    out = os.path.join(tmp, "readme.svg")
    run(tool, README_ARGS + ["--svg", out])
    with open(out, "rb") as fresh, open(README_SVG, "rb") as committed:
        check(fresh.read() == committed.read(),
              f"{README_SVG} is out of date: gralloc-layout {' '.join(README_ARGS)} --svg {README_SVG}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    tool = os.path.abspath(parser.parse_args().tool)
    with tempfile.TemporaryDirectory() as tmp:
        check_nv12_padding(tool, tmp)
        check_session(tool, tmp)
        check_compare(tool, tmp)
        check_readme_picture(tool, tmp)
    for failure in failures:
        print("FAIL:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
