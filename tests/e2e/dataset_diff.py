#!/usr/bin/env python3
"""dataset_diff.py <before> <after> [gggg,eeee=value]...: pydicom's check of an edited object.

The listed attributes must hold their values in <after>; every other top-level attribute, the
transfer syntax and the pixel data must be as in <before>. One line per problem; status 1 if any.
"""
import sys

import pydicom


def main():
    before = pydicom.dcmread(sys.argv[1], force=True)
    after = pydicom.dcmread(sys.argv[2], force=True)
    expected = {pydicom.tag.Tag(int(a[0:4], 16), int(a[5:9], 16)): a[10:] for a in sys.argv[3:]}
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
