#!/usr/bin/env python3
"""Prints the product version of a Windows module's version resource, as "1.2.3.4"."""
import struct
import sys

FIXED_FILE_INFO_SIGNATURE = struct.pack("<I", 0xFEEF04BD)

data = open(sys.argv[1], "rb").read()
at = data.find(FIXED_FILE_INFO_SIGNATURE)
if at < 0:
    sys.exit(f"{sys.argv[1]}: no version resource")
# VS_FIXEDFILEINFO: signature, structure version, file version (2 DWORDs), product version (2).
product_ms, product_ls = struct.unpack_from("<II", data, at + 16)
print(f"{product_ms >> 16}.{product_ms & 0xFFFF}.{product_ls >> 16}.{product_ls & 0xFFFF}")
