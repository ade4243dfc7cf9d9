#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints what a page is answered, for comparison with another system.

usage: answers.py SECONDS ROOT FOLDER   waits so long for each answer; ROOT is the server's system, where zint draws
codes, and FOLDER is in it, for what the server writes
"""
import subprocess
import sys

from page import Page

# (zint's number of the type, content)
CODES = [
    (3, b"12345678"), (8, b"A-39"), (13, b"5901234123457"), (13, b"96385074"), (18, b"A123456B"),
    (20, b"SAMPLE-000128"), (16, b"[01]09501101530003[10]AB-12"), (25, b"CODE 93"), (29, b"0361234567890"),
    (79, b"0950110153001"), (31, b"[01]09501101530003"), (34, b"01234567890"), (37, b"01234565"),
    (55, b"ID 110101198001011234"), (58, b"https://example.com/?a=1&b=2"), (58, "张三|3号".encode()),
    (58, "张三 3号柜台".encode("gbk")), (58, "Café".encode()), (58, b"a\0b\x1dc"), (57, b"MAXI 1"), (97, b"12345"),
    (71, b"LOT 4711"), (92, b"TICKET 12"),
]

COMMANDS = [
    ("sServerVersion", ""), ("version", ""), ("getVersion", ""), ("igetBookScannerMode", ""),
    ("vSetPreViewSize", "640,480"), ("bStartPlay", ""), ("bGetPreviewEnable", ""), ("sGetImageQuality", ""),
    ("iGetRotate", ""), ("iGetFlip", ""), ("vGetDPI", ""), ("lGetImageAreaX1", ""), ("lGetImageAreaY2", ""),
    ("sGetBarCodeOnline", ""), ("bSaveJPG", "FOLDER,answer"), ("Base64Encode", "/etc/debian-no-such-file"),
    ("lFaceMatch", "FOLDER/answer.jpg"), ("lImageMatch", "FOLDER/answer.jpg,FOLDER/answer.jpg"),
    ("GetBankCardInfo", "2"), ("iReadCardBas_noPasam", "1"), ("GetDeviceStatus", ""), ("bSavePDFStart", "FOLDER,answer"),
    ("bSavePDFColorPage", ""), ("bSavePDFEnd", ""), ("bStopPlay", ""),
]


def main():
    seconds, root, folder = float(sys.argv[1]), sys.argv[2], sys.argv[3]
    page = Page(seconds)
    for name, arguments in COMMANDS:
        print(f"{name}({arguments}): {page.call(name, arguments.replace('FOLDER', folder))}")
    for number, content in CODES:
        with open(f"{root}/tmp/content", "wb") as file:
            file.write(content)
        made = subprocess.run(["zint", "--binary", "--notext", "--quietzones", "--scale", "3", "-b", str(number),
                               "-i", f"{root}/tmp/content", "-o", f"{root}/tmp/code.png"])
        answer = "(not made)" if made.returncode else page.call("sGetBarCode", "/tmp/code.png")
        print(f"code {number} of {content}: {answer}")


main()
