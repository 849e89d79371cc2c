"""The public headers as scdoc: each group of declarations, then what its comment says."""
import re
import textwrap

from markdown import escaped

COMMENT = re.compile(r"/\*(.*?)\*/", re.S)


def header_functions(source):
    code = " ".join(line for line in COMMENT.sub("", source).splitlines() if not line.startswith("#"))
    return re.findall(r"OSTRUM_API[^(;]*?[ *](\w+) *\(", code)


def comment_lines(comment):
    """Without the stars; lines keep their indentation."""
    lines = [re.sub(r"^ \* ?| ?\*$", "", line).rstrip() for line in comment.strip(" ").splitlines()]
    return [line.removeprefix(" ") if at == 0 else line for at, line in enumerate(lines)]


def comment_text(comment):
    """Paragraphs; arguments ("name   text", with what hangs below) become terms."""
    text, within_term = "", False
    for line in comment_lines(comment):
        term = re.match(r"(\w+(?:, \w+)*:?) {2,}(.*)|(_?\w+): (?=\w)(.*)", line)
        if not line:
            text, within_term = text.rstrip("\n") + "\n\n", False
        elif term and (term[1] or term[3].startswith("_")):
            text = text.rstrip("\n") + f"\n\n*{escaped(term[1] or term[3])}*\n\t{escaped(term[2] or term[4])}\n"
            within_term = True
        elif within_term and line.startswith("   "):
            text = text.rstrip("\n") + "\n\t" + escaped(" ".join(line.split())) + "\n"
        else:
            begins = within_term or re.match(r"Returns? |Null ", line)
            text = (text.rstrip("\n") + "\n\n" if begins else text) + escaped(line.strip()) + "\n"
            within_term = False
    return re.sub(r"\n([-.\[|;:])", r"\n\\\1", text.strip("\n")) + "\n\n"


def declaration(code):
    return "\n".join(textwrap.wrap(" ".join(code.split()), 72, subsequent_indent="        "))


def group_text(group):
    """One paragraph of the header: comments and declarations up to an empty line."""
    spoken = re.match(r"\s*/\*(.*?)\*/", group, re.S)
    code = group[spoken.end():] if spoken else group
    code = re.sub(r"OSTRUM_API ([^;]*;)", lambda found: declaration(found[1]), code).strip("\n")
    text = "```\n" + code + "\n```\n\n" if code.strip() else ""
    return text + (comment_text(spoken[1]) if spoken else "")


def header_text(source):
    body = source[source.index("\n/* Ostrum"):]
    body = re.sub(r"#ifdef __cplusplus\n.*?#endif\n|^#[^\n]*\n", "", body, flags=re.S | re.M)
    text = "# DESCRIPTION\n\n"
    for group in re.split(r"\n{2,}", body):
        title = re.fullmatch(r"\s*/\* -+ (.*?) -+ \*/\s*", group)
        if title:
            text += f"# {title[1].upper()}\n\n"
        elif group.strip():
            text += group_text(group)
    return text
