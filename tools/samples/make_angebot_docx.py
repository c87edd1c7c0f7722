#!/usr/bin/env python3
"""Writes the sample document "Angebot 2024.docx": a small but complete Word package whose core,
extended and custom property parts hold what the simulated Word reports for it. The file is the
same on every run (fixed entry times and order), so regenerating it changes nothing unless this
script changed.

Usage: make_angebot_docx.py [output path]   (default: beside this script)
"""
import os
import sys
import zipfile

HEAD = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
CONTENT_TYPES = HEAD + (
    '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
    '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
    '<Default Extension="xml" ContentType="application/xml"/>'
    '<Override PartName="/word/document.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml"/>'
    '<Override PartName="/docProps/core.xml" ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>'
    '<Override PartName="/docProps/app.xml" ContentType="application/vnd.openxmlformats-officedocument.extended-properties+xml"/>'
    '<Override PartName="/docProps/custom.xml" ContentType="application/vnd.openxmlformats-officedocument.custom-properties+xml"/>'
    '</Types>')
RELS = HEAD + (
    '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
    '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="word/document.xml"/>'
    '<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/>'
    '<Relationship Id="rId3" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/extended-properties" Target="docProps/app.xml"/>'
    '<Relationship Id="rId4" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/custom-properties" Target="docProps/custom.xml"/>'
    '</Relationships>')
DOCUMENT = HEAD + (
    '<w:document xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main"><w:body>'
    '<w:p><w:r><w:t>Angebot 2024</w:t></w:r></w:p>'
    '<w:p><w:r><w:t xml:space="preserve">Sehr geehrte Damen und Herren, anbei unser Angebot '
    'f\u00fcr die Wartung Ihrer Anlagen im Jahr 2024.</w:t></w:r></w:p>'
    '<w:sectPr><w:pgSz w:w="11906" w:h="16838"/><w:pgMar w:top="1417" w:right="1417" '
    'w:bottom="1134" w:left="1417" w:header="708" w:footer="708" w:gutter="0"/></w:sectPr>'
    '</w:body></w:document>')
CORE = HEAD + (
    '<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" '
    'xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/" '
    'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">'
    '<dc:title>Angebot 2024</dc:title><dc:subject>Wartungsvertrag</dc:subject>'
    '<dc:creator>Erika Muster</dc:creator><cp:keywords>Angebot; Wartung</cp:keywords>'
    '<dc:description>Jahreswartung der Regalanlagen</dc:description>'
    '<cp:lastModifiedBy>Erika Muster</cp:lastModifiedBy><cp:revision>3</cp:revision>'
    '<dcterms:created xsi:type="dcterms:W3CDTF">2024-03-04T09:15:00Z</dcterms:created>'
    '<dcterms:modified xsi:type="dcterms:W3CDTF">2024-03-05T16:40:00Z</dcterms:modified>'
    '<cp:category>Angebote</cp:category>'
    '</cp:coreProperties>')
APP = HEAD + (
    '<Properties xmlns="http://schemas.openxmlformats.org/officeDocument/2006/extended-properties" '
    'xmlns:vt="http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes">'
    '<Template>Normal.dotm</Template><TotalTime>25</TotalTime><Pages>1</Pages><Words>19</Words>'
    '<Characters>121</Characters><Application>Microsoft Office Word</Application>'
    '<DocSecurity>0</DocSecurity><Lines>1</Lines><Paragraphs>2</Paragraphs>'
    '<Company>Muster GmbH</Company><CharactersWithSpaces>139</CharactersWithSpaces>'
    '<AppVersion>16.0000</AppVersion></Properties>')
# One custom property of each type Office offers: text, number, date and yes/no.
CUSTOM_FMTID = '{D5CDD505-2E9C-101B-9397-08002B2CF9AE}'
CUSTOM_PROPERTIES = [
    ('Projekt', 'lpwstr', 'Wartung Halle 3'),
    ('Angebotsnummer', 'i4', '2024117'),
    ('G\u00fcltig bis', 'filetime', '2024-04-30T10:00:00Z'),
    ('Freigegeben', 'bool', 'true'),
]
CUSTOM = HEAD + (
    '<Properties xmlns="http://schemas.openxmlformats.org/officeDocument/2006/custom-properties" '
    'xmlns:vt="http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes">'
    + ''.join(f'<property fmtid="{CUSTOM_FMTID}" pid="{pid}" name="{name}"><vt:{kind}>{value}</vt:{kind}></property>'
              for pid, (name, kind, value) in enumerate(CUSTOM_PROPERTIES, start=2))
    + '</Properties>')

PARTS = [
    ('[Content_Types].xml', CONTENT_TYPES),
    ('_rels/.rels', RELS),
    ('word/document.xml', DOCUMENT),
    ('docProps/core.xml', CORE),
    ('docProps/app.xml', APP),
    ('docProps/custom.xml', CUSTOM),
]
# The last save, as the entries' times.
SAVED = (2024, 3, 5, 16, 40, 0)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    output = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, 'Angebot 2024.docx')
    with zipfile.ZipFile(output, 'w') as package:
        for name, text in PARTS:
            entry = zipfile.ZipInfo(name, SAVED)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            package.writestr(entry, text.encode('utf-8'))


if __name__ == '__main__':
    main()
