#!/usr/bin/env python3
"""Writes the small Word, Excel and PowerPoint files that the fake Office hosts save in the tests.

Each is a minimal but complete package the real applications open: one paragraph, one sheet or
one slide, with core and app properties. A "-revised" twin of each differs only in its text, for
tests that edit a document between two archives. The archives are reproducible byte for byte
(fixed entry order, times and permissions), so running this again changes nothing.

Usage: python3 make_samples.py   (writes into the folder this script lives in)
"""
import os
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))

XML = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
PKG_REL = "http://schemas.openxmlformats.org/package/2006/relationships"
DOC_REL = "http://schemas.openxmlformats.org/officeDocument/2006/relationships"
CT = "http://schemas.openxmlformats.org/package/2006/content-types"
OFFDOC = "http://schemas.openxmlformats.org/officeDocument/2006"


def content_types(overrides):
    items = "".join(
        f'<Override PartName="{part}" ContentType="{kind}"/>' for part, kind in overrides)
    return (XML + f'<Types xmlns="{CT}">'
            '<Default Extension="rels" '
            'ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
            '<Default Extension="xml" ContentType="application/xml"/>'
            + items +
            '<Override PartName="/docProps/core.xml" '
            'ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>'
            '<Override PartName="/docProps/app.xml" '
            'ContentType="application/vnd.openxmlformats-officedocument.extended-properties+xml"/>'
            '</Types>')


def relationships(rels):
    items = "".join(
        f'<Relationship Id="{rid}" Type="{kind}" Target="{target}"/>'
        for rid, kind, target in rels)
    return XML + f'<Relationships xmlns="{PKG_REL}">{items}</Relationships>'


def root_rels(main):
    return relationships([
        ("rId1", f"{DOC_REL}/officeDocument", main),
        ("rId2", "http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
                 "core-properties", "docProps/core.xml"),
        ("rId3", f"{DOC_REL}/extended-properties", "docProps/app.xml"),
    ])


def core(title):
    return (XML +
            '<cp:coreProperties '
            'xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" '
            'xmlns:dc="http://purl.org/dc/elements/1.1/" '
            'xmlns:dcterms="http://purl.org/dc/terms/" '
            'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">'
            f'<dc:title>{title}</dc:title>'
            '<dc:creator>Erika Beispiel</dc:creator>'
            '<cp:lastModifiedBy>Erika Beispiel</cp:lastModifiedBy>'
            '<dcterms:created xsi:type="dcterms:W3CDTF">2024-03-01T09:30:00Z</dcterms:created>'
            '<dcterms:modified xsi:type="dcterms:W3CDTF">2024-03-04T16:05:00Z</dcterms:modified>'
            '</cp:coreProperties>')


def app(application):
    return (XML +
            f'<Properties xmlns="{OFFDOC}/extended-properties" '
            f'xmlns:vt="{OFFDOC}/docPropsVTypes">'
            f'<Application>{application}</Application><Company>Beispiel GmbH</Company>'
            '</Properties>')


def write_package(name, parts):
    with zipfile.ZipFile(os.path.join(HERE, name), "w") as package:
        for part, text in parts:
            info = zipfile.ZipInfo(part, date_time=(2024, 3, 4, 16, 5, 0))
            info.compress_type = zipfile.ZIP_DEFLATED
            info.external_attr = 0o644 << 16
            package.writestr(info, text.encode("utf-8"))


W = "http://schemas.openxmlformats.org/wordprocessingml/2006/main"


def docx(name, text):
    document = (XML + f'<w:document xmlns:w="{W}"><w:body>'
                f'<w:p><w:r><w:t xml:space="preserve">{text}</w:t></w:r></w:p>'
                '<w:sectPr><w:pgSz w:w="11906" w:h="16838"/>'
                '<w:pgMar w:top="1417" w:right="1417" w:bottom="1134" w:left="1417" '
                'w:header="708" w:footer="708" w:gutter="0"/></w:sectPr>'
                '</w:body></w:document>')
    write_package(name, [
        ("[Content_Types].xml", content_types([(
            "/word/document.xml",
            "application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml")])),
        ("_rels/.rels", root_rels("word/document.xml")),
        ("word/document.xml", document),
        ("docProps/core.xml", core("Angebot")),
        ("docProps/app.xml", app("Microsoft Office Word")),
    ])


S = "http://schemas.openxmlformats.org/spreadsheetml/2006/main"


def xlsx(name, text):
    workbook = (XML + f'<workbook xmlns="{S}" xmlns:r="{DOC_REL}"><sheets>'
                '<sheet name="Tabelle1" sheetId="1" r:id="rId1"/></sheets></workbook>')
    sheet = (XML + f'<worksheet xmlns="{S}"><sheetData><row r="1">'
             f'<c r="A1" t="inlineStr"><is><t>{text}</t></is></c><c r="B1"><v>4711</v></c>'
             '</row></sheetData></worksheet>')
    write_package(name, [
        ("[Content_Types].xml", content_types([
            ("/xl/workbook.xml",
             "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml"),
            ("/xl/worksheets/sheet1.xml",
             "application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml")])),
        ("_rels/.rels", root_rels("xl/workbook.xml")),
        ("xl/workbook.xml", workbook),
        ("xl/_rels/workbook.xml.rels",
         relationships([("rId1", f"{DOC_REL}/worksheet", "worksheets/sheet1.xml")])),
        ("xl/worksheets/sheet1.xml", sheet),
        ("docProps/core.xml", core("Umsatz")),
        ("docProps/app.xml", app("Microsoft Excel")),
    ])


P = "http://schemas.openxmlformats.org/presentationml/2006/main"
A = "http://schemas.openxmlformats.org/drawingml/2006/main"
PML = "application/vnd.openxmlformats-officedocument.presentationml"

EMPTY_TREE = ('<p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id="1" name=""/><p:cNvGrpSpPr/><p:nvPr/>'
              '</p:nvGrpSpPr><p:grpSpPr/>{shapes}</p:spTree></p:cSld>')


def theme():
    colors = "".join(
        f'<a:{slot}><a:srgbClr val="{value}"/></a:{slot}>' for slot, value in [
            ("lt1", "FFFFFF"), ("dk2", "44546A"), ("lt2", "E7E6E6"), ("accent1", "4472C4"),
            ("accent2", "ED7D31"), ("accent3", "A5A5A5"), ("accent4", "FFC000"),
            ("accent5", "5B9BD5"), ("accent6", "70AD47"), ("hlink", "0563C1"),
            ("folHlink", "954F72")])
    fonts = '<a:latin typeface="Calibri"/><a:ea typeface=""/><a:cs typeface=""/>'
    fill = '<a:solidFill><a:schemeClr val="phClr"/></a:solidFill>'
    line = f'<a:ln w="6350">{fill}</a:ln>'
    return (XML + f'<a:theme xmlns:a="{A}" name="Office"><a:themeElements>'
            '<a:clrScheme name="Office"><a:dk1><a:srgbClr val="000000"/></a:dk1>'
            f'{colors}</a:clrScheme>'
            f'<a:fontScheme name="Office"><a:majorFont>{fonts}</a:majorFont>'
            f'<a:minorFont>{fonts}</a:minorFont></a:fontScheme>'
            '<a:fmtScheme name="Office">'
            f'<a:fillStyleLst>{fill * 3}</a:fillStyleLst>'
            f'<a:lnStyleLst>{line * 3}</a:lnStyleLst>'
            f'<a:effectStyleLst>{"<a:effectStyle><a:effectLst/></a:effectStyle>" * 3}'
            '</a:effectStyleLst>'
            f'<a:bgFillStyleLst>{fill * 3}</a:bgFillStyleLst>'
            '</a:fmtScheme></a:themeElements></a:theme>')


def pptx(name, text):
    ns = f'xmlns:a="{A}" xmlns:r="{DOC_REL}" xmlns:p="{P}"'
    title = ('<p:sp><p:nvSpPr><p:cNvPr id="2" name="Titel 1"/><p:cNvSpPr/><p:nvPr/></p:nvSpPr>'
             '<p:spPr><a:xfrm><a:off x="838200" y="365125"/><a:ext cx="10515600" cy="1325563"/>'
             '</a:xfrm><a:prstGeom prst="rect"><a:avLst/></a:prstGeom></p:spPr>'
             f'<p:txBody><a:bodyPr/><a:lstStyle/><a:p><a:r><a:rPr lang="de-DE"/><a:t>{text}</a:t>'
             '</a:r></a:p></p:txBody></p:sp>')
    presentation = (XML + f'<p:presentation {ns}>'
                    '<p:sldMasterIdLst><p:sldMasterId id="2147483648" r:id="rId1"/>'
                    '</p:sldMasterIdLst>'
                    '<p:sldIdLst><p:sldId id="256" r:id="rId2"/></p:sldIdLst>'
                    '<p:sldSz cx="12192000" cy="6858000"/><p:notesSz cx="6858000" cy="9144000"/>'
                    '</p:presentation>')
    master = (XML + f'<p:sldMaster {ns}>' + EMPTY_TREE.format(shapes="") +
              '<p:clrMap bg1="lt1" tx1="dk1" bg2="lt2" tx2="dk2" accent1="accent1" '
              'accent2="accent2" accent3="accent3" accent4="accent4" accent5="accent5" '
              'accent6="accent6" hlink="hlink" folHlink="folHlink"/>'
              '<p:sldLayoutIdLst><p:sldLayoutId id="2147483649" r:id="rId1"/></p:sldLayoutIdLst>'
              '</p:sldMaster>')
    layout = (XML + f'<p:sldLayout {ns} type="blank">' + EMPTY_TREE.format(shapes="") +
              '<p:clrMapOvr><a:masterClrMapping/></p:clrMapOvr></p:sldLayout>')
    slide = (XML + f'<p:sld {ns}>' + EMPTY_TREE.format(shapes=title) +
             '<p:clrMapOvr><a:masterClrMapping/></p:clrMapOvr></p:sld>')
    write_package(name, [
        ("[Content_Types].xml", content_types([
            ("/ppt/presentation.xml", f"{PML}.presentation.main+xml"),
            ("/ppt/slideMasters/slideMaster1.xml", f"{PML}.slideMaster+xml"),
            ("/ppt/slideLayouts/slideLayout1.xml", f"{PML}.slideLayout+xml"),
            ("/ppt/slides/slide1.xml", f"{PML}.slide+xml"),
            ("/ppt/theme/theme1.xml", "application/vnd.openxmlformats-officedocument.theme+xml"),
        ])),
        ("_rels/.rels", root_rels("ppt/presentation.xml")),
        ("ppt/presentation.xml", presentation),
        ("ppt/_rels/presentation.xml.rels", relationships([
            ("rId1", f"{DOC_REL}/slideMaster", "slideMasters/slideMaster1.xml"),
            ("rId2", f"{DOC_REL}/slide", "slides/slide1.xml"),
            ("rId3", f"{DOC_REL}/theme", "theme/theme1.xml")])),
        ("ppt/slideMasters/slideMaster1.xml", master),
        ("ppt/slideMasters/_rels/slideMaster1.xml.rels", relationships([
            ("rId1", f"{DOC_REL}/slideLayout", "../slideLayouts/slideLayout1.xml"),
            ("rId2", f"{DOC_REL}/theme", "../theme/theme1.xml")])),
        ("ppt/slideLayouts/slideLayout1.xml", layout),
        ("ppt/slideLayouts/_rels/slideLayout1.xml.rels", relationships([
            ("rId1", f"{DOC_REL}/slideMaster", "../slideMasters/slideMaster1.xml")])),
        ("ppt/slides/slide1.xml", slide),
        ("ppt/slides/_rels/slide1.xml.rels", relationships([
            ("rId1", f"{DOC_REL}/slideLayout", "../slideLayouts/slideLayout1.xml")])),
        ("ppt/theme/theme1.xml", theme()),
        ("docProps/core.xml", core("Quartalsbericht")),
        ("docProps/app.xml", app("Microsoft Office PowerPoint")),
    ])


if __name__ == "__main__":
    docx("sample.docx", "Angebot 2024 für die Beispiel GmbH")
    docx("sample-revised.docx", "Angebot 2024 für die Beispiel GmbH, überarbeitet")
    xlsx("sample.xlsx", "Umsatz erstes Quartal")
    xlsx("sample-revised.xlsx", "Umsatz erstes Quartal, überarbeitet")
    pptx("sample.pptx", "Quartalsbericht")
    pptx("sample-revised.pptx", "Quartalsbericht, überarbeitet")
