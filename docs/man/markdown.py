"""The Markdown that the documents use, as scdoc: headings, paragraphs, lists, tables, code."""
import re
import textwrap

PAGE_WIDTH = 70  # of a code block on a terminal of 80 columns


class Section:
    """What stands below one heading of the second level; the first one is what stands before."""

    def __init__(self, title):
        self.title, self.blocks = title, []


def escaped(text):
    return re.sub(r"([\\*_`#~])", r"\\\1", text)


def inline(text, bold="*{}*", escape=escaped):
    """Code and emphasis become bold, links their text. Neither looks for the other within code."""
    spans = []
    text = text.replace("<br>", " ").replace("\\|", "|")
    text = re.sub(r"`([^`]+)`", lambda found: spans.append(found[1]) or f"\0{len(spans) - 1}\0", text)
    text = re.sub(r"\[([^]]+)\]\([^)]*\)", r"\1", text)
    parts = re.split(r"\*\*([^*]+)\*\*|(?<!\w)\*([^* ][^*]*)\*", text)
    shown = "".join(escape(part) if at % 3 == 0 else bold.format(escape(part))
                    for at, part in enumerate(parts) if part is not None)
    return re.sub(r"\0(\d+)\0", lambda found: bold.format(escape(spans[int(found[1])])), shown)


def line_of(text):
    """Inline text at the begin of a line, where some characters have a meaning of their own."""
    shown = inline(text)
    return "\\" + shown if re.match(r"[-\[\]|.;:]", shown) else shown


def plain(text):
    return inline(text, "{}", str)


def kind_of(line):
    for kind, pattern in (("heading", r"#+ "), ("fence", r"```"), ("code", r" {4}\S"), ("table", r"\|"),
                          ("item", r"(- |\d+\. )"), ("blank", r"\s*$")):
        if re.match(pattern, line):
            return kind
    return "text"


def blocks_of(text):
    """(kind, lines), where code has lost its indentation and an item is one line."""
    blocks, fenced = [], False
    for line in text.splitlines():
        kind = kind_of(line)
        if kind == "fence":
            fenced = not fenced
            blocks += [("code", [])] if fenced else []
            continue
        last = blocks[-1] if blocks else ("blank", [])
        if last[0] == "code" and line.startswith("    "):
            kind = "code"
        if fenced:
            last[1].append(line)
        elif kind == "text" and last[0] in ("text", "item"):
            last[1][-1] += " " + line.strip()
        elif kind in ("code", "table", "item") and last[0] == kind:
            last[1].append(line[4:] if kind == "code" else line)
        else:
            blocks.append((kind, [line[4:] if kind == "code" else line]))
    return blocks


def sections(path):
    found = [Section("")]
    for kind, lines in blocks_of(path.read_text(encoding="utf-8")):
        if kind == "heading" and lines[0].startswith("## "):
            found.append(Section(lines[0][3:]))
        elif kind != "heading" or lines[0].startswith("###"):
            found[-1].blocks.append((kind, lines))
    return found


def code_lines(section):
    return [line for kind, lines in section.blocks if kind == "code" for line in lines]


def cells_of(row):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]


def columns(rows, widths):
    """As text of fixed width, whose last column is wrapped."""
    room = PAGE_WIDTH - sum(width + 2 for width in widths)
    text = ""
    for row in rows:
        begin = "".join(plain(cell).ljust(width + 2) for cell, width in zip(row, widths))
        for line in textwrap.wrap(plain(row[-1]), room) or [""]:
            text += f"{begin}{line}".rstrip() + "\n"
            begin = " " * len(begin)
    return f"```\n{text}```\n\n"


def table(lines):
    """Columns where the last one has room; otherwise each row becomes a term with its text."""
    rows = [cells_of(line) for line in lines if not re.match(r"^\|[-| :]+\|$", line)]
    head, body = rows[0], rows[1:]
    widths = [max(len(plain(row[at])) for row in rows) for at in range(len(head) - 1)]
    if len(head) > 2 and sum(widths) <= PAGE_WIDTH // 2:
        return columns(rows, widths)
    text = ""
    for row in body:
        said = [line_of(cell) if at == 1 else f"{inline(head[at])}: {inline(cell)}"
                for at, cell in enumerate(row) if at > 0 and cell]
        term = line_of(row[0] or "-")
        text += (term if term.startswith("*") else f"*{term}*") + "\n\t" + ". ".join(said or ["\\-"]) + "\n\n"
    return text


def as_scdoc(blocks, skip_code=False):
    text = ""
    for kind, lines in blocks:
        if kind == "heading":
            text += f"## {lines[0].lstrip('# ')}\n\n"
        elif kind == "code" and not skip_code:
            text += "```\n" + "\n".join(lines) + "\n```\n\n"
        elif kind == "table":
            text += table(lines)
        elif kind == "item":
            text += "".join(re.sub(r"^(- |\d+\. )(.*)", lambda found: ("- " if found[1] == "- " else ". ") +
                                   inline(found[2]), line) + "\n" for line in lines) + "\n"
        elif kind == "text":
            text += line_of(lines[0]) + "\n\n"
    return text
