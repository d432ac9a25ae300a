#!/usr/bin/env python3
"""Independent check (pydicom) of an edited object against its original.

usage: dataset_diff.py <before> <after> [gggg,eeee=expected value]...

Every listed attribute must hold the expected value in <after>; every other top-level attribute,
the transfer syntax and the pixel data bytes must be as in <before> (group lengths excepted).
Prints one line per problem; exit status 0 when there is none.
"""
import sys

import pydicom


def tag_of(text):
    group, element = text.split(",")
    return pydicom.tag.Tag(int(group, 16), int(element, 16))


def main():
    before = pydicom.dcmread(sys.argv[1], force=True)
    after = pydicom.dcmread(sys.argv[2], force=True)
    expected = {}
    for arg in sys.argv[3:]:
        key, value = arg.split("=", 1)
        expected[tag_of(key)] = value
    problems = []
    ts_before = before.file_meta.get("TransferSyntaxUID", None)
    ts_after = after.file_meta.get("TransferSyntaxUID", None)
    if ts_before is not None and ts_before != ts_after:
        problems.append("transfer syntax %s != %s" % (ts_before, ts_after))
    for tag, value in expected.items():
        if tag not in after:
            problems.append("%s missing" % tag)
        elif str(after[tag].value) != value:
            problems.append("%s is %r, expected %r" % (tag, str(after[tag].value), value))
    tags = (set(before.keys()) | set(after.keys())) - set(expected)
    for tag in sorted(tags):
        if tag.element == 0:
            continue
        if tag not in before or tag not in after:
            problems.append("%s only in %s" % (tag, "before" if tag in before else "after"))
            continue
        a, b = before[tag], after[tag]
        # encapsulated pixel data written as OW by some encoders is rewritten as OB
        same_vr = a.VR == b.VR or (tag == 0x7FE00010 and {a.VR, b.VR} == {"OB", "OW"}
                                   and after.file_meta.TransferSyntaxUID.is_compressed)
        if not same_vr or a.value != b.value:
            problems.append("%s differs" % tag)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
