#!/usr/bin/env python3
"""Reads an exported file with nothing but Python's own libraries and prints what stands in it.

Usage: read_export.py csv|tsv|xlsx|office FILE

"office" has LibreOffice read a workbook and make CSV of it; without that, the exit status is 77.

Rows end in U+001E, cells in U+001F. Of a workbook, the first row is its sheet's name and what is frozen; cells are
`s:text`, `n:number` with the number's format behind it unless it is general, `b:0`, bold text `S:text`, or nothing.
"""
import csv
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET
import zipfile

MAIN = "{http://schemas.openxmlformats.org/spreadsheetml/2006/main}"


def text_rows(path, delimiter):
    with open(path, encoding="utf-8", newline="") as file:
        yield from csv.reader(file, delimiter=delimiter, strict=True)


def column_of(reference):
    number = 0
    for letter in reference.rstrip("0123456789"):
        number = number * 26 + ord(letter) - ord("A") + 1
    return number - 1


def styles_of(book):
    root = ET.fromstring(book.read("xl/styles.xml"))
    formats = {item.get("numFmtId"): item.get("formatCode") for item in root.iter(MAIN + "numFmt")}
    bold = [font.find(MAIN + "b") is not None for font in root.find(MAIN + "fonts")]
    return [(formats.get(style.get("numFmtId"), ""), bold[int(style.get("fontId"))])
            for style in root.find(MAIN + "cellXfs")]


def plain(text):
    return re.sub("_x([0-9A-Fa-f]{4})_", lambda found: chr(int(found.group(1), 16)), text)


def cell_text(cell, styles):
    number_format, is_bold = styles[int(cell.get("s", "0"))]
    if cell.get("t") == "inlineStr":
        return ("S:" if is_bold else "s:") + plain("".join(part.text or "" for part in cell.iter(MAIN + "t")))
    value = cell.find(MAIN + "v")
    if value is None:
        return ""
    if cell.get("t") == "b":
        return "b:" + value.text
    return "n:" + value.text + (" " + number_format if number_format else "")


def workbook_rows(path):
    book = zipfile.ZipFile(path)
    assert book.testzip() is None
    styles = styles_of(book)
    sheets = ET.fromstring(book.read("xl/workbook.xml")).find(MAIN + "sheets")
    sheet = ET.fromstring(book.read("xl/worksheets/sheet1.xml"))
    pane = sheet.find(MAIN + "sheetViews").find(MAIN + "sheetView").find(MAIN + "pane")
    assert len(sheets) == 1
    yield [sheets[0].get("name"), pane.get("topLeftCell")]
    for row in sheet.find(MAIN + "sheetData"):
        cells = []
        for cell in row:
            column = column_of(cell.get("r"))
            cells += [""] * (column - len(cells)) + [cell_text(cell, styles)]
        yield cells


def office_rows(path):
    office = shutil.which("soffice")
    if office is None:
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([office, "-env:UserInstallation=file://" + folder + "/profile", "--headless", "--convert-to",
                        "csv:Text - txt - csv (StarCalc):44,34,76", "--outdir", folder, path],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=120)
        name = os.path.splitext(os.path.basename(path))[0] + ".csv"
        yield from list(text_rows(os.path.join(folder, name), ","))


def main():
    kind, path = sys.argv[1:]
    if kind == "office":
        rows = office_rows(path)
    else:
        rows = workbook_rows(path) if kind == "xlsx" else text_rows(path, "\t" if kind == "tsv" else ",")
    text = "".join("".join(cell + "\x1f" for cell in row) + "\x1e" for row in rows)
    sys.stdout.buffer.write(text.encode("utf-8"))


main()
