#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/. The seeds are checked in; run this after
changing a fuzz target's input format.

    fuzz/seeds.py [GRALLOC_LAYOUT]

The profile targets' seeds are the shipped profiles and captures of the example camera session,
which GRALLOC_LAYOUT (default: build/bin/gralloc-layout) makes; without it the captures already
checked in stay."""
import json
import os
import struct
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
METADATA_TYPE = b"android.hardware.graphics.common.StandardMetadataType"
COMPONENT_TYPE = b"android.hardware.graphics.common.PlaneLayoutComponentType"

# Standard metadata types used below.
NAME, USAGE, COMPRESSION, PLANE_LAYOUTS, CROP, DATASPACE = 2, 9, 12, 15, 16, 17
SMPTE2086, CTA861_3, SMPTE2094_40, SMPTE2094_10, STRIDE = 19, 20, 21, 22, 23
Y, CB, CR = 1, 2, 4


def i64(v):
    return struct.pack("<q", v)


def text(s):
    return i64(len(s)) + s


def header(kind):
    return text(METADATA_TYPE) + i64(kind)


def plane(components, offset, increment, stride, width, height, total, hsub, vsub):
    out = i64(len(components))
    for kind, bit_offset, bits in components:
        out += text(COMPONENT_TYPE) + i64(kind) + i64(bit_offset) + i64(bits)
    return out + b"".join(i64(v) for v in (offset, increment, stride, width, height, total,
                                            hsub, vsub))


def plane_layouts(planes):
    return header(PLANE_LAYOUTS) + i64(len(planes)) + b"".join(planes)


NV21 = plane_layouts([
    plane([(Y, 0, 8)], 0, 8, 1920, 1920, 1080, 2073600, 1, 1),
    plane([(CR, 0, 8), (CB, 8, 8)], 2073600, 16, 1920, 960, 540, 1036800, 2, 2),
])
YV12 = plane_layouts([
    plane([(Y, 0, 8)], 0, 8, 640, 640, 480, 307200, 1, 1),
    plane([(CR, 0, 8)], 307200, 8, 320, 320, 240, 76800, 2, 2),
    plane([(CB, 0, 8)], 384000, 8, 320, 320, 240, 76800, 2, 2),
])
RGBA = plane_layouts([plane([], 0, 32, 7680, 1920, 1080, 8294400, 1, 1)])
SMPTE2086_VALUE = header(SMPTE2086) + struct.pack(
    "<10f", 0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290, 1000.0, 0.0001)
CTA861_3_VALUE = header(CTA861_3) + struct.pack("<2f", 1000.0, 400.0)
HDR10_PLUS = header(SMPTE2094_40) + text(bytes(range(200)))


def write(target, name, data):
    directory = os.path.join(HERE, "corpus", target)
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, name), "wb") as f:
        f.write(data)


def metadata_seeds():
    blobs = {
        "nv21-plane-layouts": (PLANE_LAYOUTS, NV21),
        "rgba-plane-layouts": (PLANE_LAYOUTS, RGBA),
        "smpte2086": (SMPTE2086, SMPTE2086_VALUE),
        "cta861-3": (CTA861_3, CTA861_3_VALUE),
        "cta861-3-unset": (CTA861_3, b""),
        "smpte2094-40": (SMPTE2094_40, HDR10_PLUS),
        "smpte2094-10": (SMPTE2094_10, header(SMPTE2094_10) + text(b"\xde\xad")),
        "dataspace": (DATASPACE, header(DATASPACE) + struct.pack("<i", 0x08C60000)),
        "stride": (STRIDE, header(STRIDE) + struct.pack("<I", 1920)),
        "usage": (USAGE, header(USAGE) + i64(0x20003)),
        "crop": (CROP, header(CROP) + i64(1) + struct.pack("<4i", 0, 0, 1920, 1080)),
        "name": (NAME, header(NAME) + text(b"cam")),
        "compression": (COMPRESSION, header(COMPRESSION) +
                        text(b"android.hardware.graphics.common.Compression") + i64(0)),
    }
    for name, (kind, blob) in blobs.items():
        cut = len(blob) // 2
        write("metadata_fuzzer", name, struct.pack("<BH", kind - 1, cut) + blob)


LOCK_PLAIN, LOCK_BPP, LOCK_YCBCR, PLANE_LAYOUTS_OP, GET_META, SET_META = range(6)
EXACT_SIZE = 0x80
WITH_FENCE = 1


BLOB, CLAIMED_SIZE, DYNAMIC_PAYLOAD = range(3)


def mapper_input(steps, answers, flags=0):
    """answers: (BLOB or DYNAMIC_PAYLOAD, bytes) or (CLAIMED_SIZE, bytes, result)."""
    out = struct.pack("<B", len(steps) - 1)
    for op, param, size in steps:
        out += struct.pack("<BBH", op, param, size)
    out += struct.pack("<B", flags)
    for kind, data, *result in answers:
        out += struct.pack("<BH", kind, len(data)) + data
        if kind == CLAIMED_SIZE:
            out += struct.pack("<i", result[0])
    return out


def mapper_seeds():
    seeds = {
        "ycbcr-nv21": mapper_input([(LOCK_YCBCR, 0, 0)], [(BLOB, NV21)], WITH_FENCE),
        "ycbcr-yv12": mapper_input([(LOCK_YCBCR, 0, 0)], [(BLOB, YV12)]),
        "bpp-rgba": mapper_input([(LOCK_BPP, 0, 0), (LOCK_PLAIN, 0, 0)], [(BLOB, RGBA)],
                                 WITH_FENCE),
        "plane-layouts-600": mapper_input([(PLANE_LAYOUTS_OP, 0, 0)],
                                          [(BLOB, NV21 + bytes(112))]),
        "get-smpte2086": mapper_input([(GET_META, EXACT_SIZE | 0, 0)],
                                      [(BLOB, SMPTE2086_VALUE)]),
        "get-cta861-3": mapper_input([(GET_META, EXACT_SIZE | 1, 0)], [(BLOB, CTA861_3_VALUE)]),
        "get-hdr10-plus": mapper_input([(GET_META, EXACT_SIZE | 2, 0)],
                                       [(DYNAMIC_PAYLOAD, bytes(range(200)))]),
        "get-unsupported": mapper_input([(GET_META, EXACT_SIZE | 1, 0)],
                                        [(CLAIMED_SIZE, b"", -7)]),
        "get-bad-value": mapper_input([(GET_META, EXACT_SIZE | 0, 0)],
                                      [(CLAIMED_SIZE, b"", -3)]),
        "set-hdr10-plus": mapper_input([(SET_META, 2, 0)], [(BLOB, bytes(range(48)))]),
        "set-smpte2086": mapper_input([(SET_META, EXACT_SIZE | 0, 0)], [(BLOB, bytes(40))]),
    }
    for name, data in seeds.items():
        write("mapper_fuzzer", name, data)


def names_seeds():
    formats = [0x1, 0x11, 0x22, 0x23, 0x36, 0x111, 0x1000, 0x20203859, 0x32315659, -1, 7]
    usages = [0, 0x33, 0x60000, 0x20100, 0x20020000, 0x8000000, 0x1F00, -1]
    dataspaces = [0, 0x102, 0x60000, 0x08C20000, 0x10C40000, 0x11C60000, 0x18410000, 0x1005,
                  0x18810000, 0x3FFF0000]
    for name, values in (("formats", formats), ("usages", usages), ("dataspaces", dataspaces)):
        write("names_fuzzer", name, struct.pack("<%di" % len(values), *values))


def tool_seeds():
    seeds = {
        "nv21": ["1920x1080", "YCrCb_420_SP"],
        "json-usage": ["--json", "1920x1080", "NV12", "--usage",
                       "SW_READ_OFTEN|HW_CAMERA_WRITE"],
        "two-requests": ["640x480", "YV12", "--batch", "4", "--refresh", "4000x3000", "0x20"],
        "names-format": ["names", "format", "NV12"],
        "names-usage": ["names", "usage", "0x33"],
        "names-dataspace": ["names", "dataspace", "0x08C20000"],
        "help": ["--help"],
        "bad-size": ["1920by1080", "NV12"],
        "verify": ["verify", "--json", "640x480", "NV12", "--usage", "SW_READ_OFTEN"],
        "memory-svg": ["--csv", "--svg", "out.svg", "1100x700", "NV12", "--buffers", "3",
                       "1920x1080", "0x2611", "--usage", "HW_CAMERA_WRITE|SMVR"],
    }
    for name, args in seeds.items():
        write("tool_args_fuzzer", name, b"\0".join(a.encode() for a in args))


def layout_seeds():
    def request(width, height, fmt, usage, batch=0, flags=0):
        return struct.pack("<iiiiiB", width, height, fmt, usage, batch, flags)

    def misreported(width, height, fmt, usage, attribute, value):
        return request(width, height, fmt, usage, 0, 4) + struct.pack("<Bq", attribute, value)

    seeds = {
        "nv21-preview": request(1920, 1080, 0x11, 0x33),
        "rgba-refresh": request(1920, 1080, 0x1, 0x100) + request(1920, 1080, 0x1, 0x100, 0, 1),
        "yv12-protected": request(641, 481, 0x32315659, 0x4000),
        "p010-smvr": request(1920, 1088, 0x36, 0x20020000, 4),
        "implementation-defined": request(1280, 720, 0x22, 0x20900),
        "blob-raw16": request(4000, 3000, 0x21, 0x800) + request(4000, 3000, 0x20, 0),
        "batch-format": request(1280, 736, 0x2601, 0x20000),
        "ion-query-fails": request(640, 480, 0x1, 0x3, 0, 2),
        # The stride, then the usage (made protected) of a YV12 buffer, misreported.
        "yv12-stride-misreported": misreported(640, 480, 0x32315659, 0x3, 0, 0x7FFFFFFF),
        "yv12-usage-misreported": misreported(640, 480, 0x32315659, 0x3, 4, 0x4003),
    }
    for name, data in seeds.items():
        write("layout_query_fuzzer", name, data)


ROOT = os.path.dirname(HERE)
PROFILES = os.path.join(ROOT, "host", "profiles")
SHIPPED = ("default", "soc-a64", "soc-b128")


def capture(tool, profile, rules_name):
    """A capture of the example session under `profile`, its base named as a file beside the
    shipped profiles would name it."""
    with tempfile.TemporaryDirectory() as scratch:
        out = os.path.join(scratch, "capture.json")
        args = [tool, "--capture", out, "-f",
                os.path.join(ROOT, "tools", "examples", "camera-session.txt")]
        if profile:
            args[1:1] = ["--profile", os.path.join(PROFILES, profile + ".json")]
        subprocess.run(args, check=True, stdout=subprocess.DEVNULL)
        with open(out, "rb") as f:
            text = f.read()
    document = json.loads(text)
    document["extends"] = rules_name
    document["comment"] = document["comment"].replace(ROOT + "/", "")  # no local paths
    return json.dumps(document, indent=1).encode() + b"\n"


def profile_texts(tool):
    texts = {}
    for name in SHIPPED:
        with open(os.path.join(PROFILES, name + ".json"), "rb") as f:
            texts[name] = f.read()
    captures = {"capture-default": (None, "default"),
                "capture-soc-a64": ("soc-a64", "soc-a64.json")}
    for name, (profile, rules) in captures.items():
        if tool:
            texts[name] = capture(tool, profile, rules)
        else:
            with open(os.path.join(HERE, "corpus", "profile_reader_fuzzer", name), "rb") as f:
                texts[name] = f.read()
    return texts


def request(width, height, fmt, usage, batch=0):
    return struct.pack("<iiiii", width, height, fmt, usage, batch)


# A few requests of the example session (preview, ZSL, still YUV, RAW10, a slow-motion batch,
# the secure stream) and one of no size, each profile answering four of them.
SESSION = [
    request(1920, 1080, 0x22, 0x900),
    request(4000, 3000, 0x22, 0x60000),
    request(4000, 3000, 0x23, 0x3),
    request(4000, 3000, 0x25, 0x3),
    request(1280, 720, 0x2602, 0x20000 | 0x10000 | 0x20000000),
    request(640, 480, 0x23, 0x4000 | 0x20000),
    request(0, 1080, 0x11, 0x3),
]


def profile_seeds(tool):
    for name, text in profile_texts(tool).items():
        write("profile_reader_fuzzer", name, text)
        for i in range(0, len(SESSION), 4):
            picked = SESSION[i:i + 4]
            write("profile_requests_fuzzer", "%s-%d" % (name, i // 4),
                  struct.pack("<B", len(picked) - 1) + b"".join(picked) + text)


if __name__ == "__main__":
    metadata_seeds()
    mapper_seeds()
    names_seeds()
    tool_seeds()
    layout_seeds()
    tool = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build", "bin",
                                                               "gralloc-layout")
    if not os.access(tool, os.X_OK):
        print("%s not found: the captures checked in stay" % tool, file=sys.stderr)
        tool = None
    profile_seeds(tool)
