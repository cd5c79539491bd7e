"""What the installed headers say: sections, comments and what they declare, for programs that make manuals."""
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent
HEADERS = ("include/qim.h", "include/qim_db.h", "include/qim_codes.h", "include/qim_acl.h",
           "include/rov_types.h", "database/include/rov.h", "database/include/rov_edit.h",
           "database/include/mem.h", "database/include/tlvo.h")

DECLARED = re.compile(r"\b([a-z]\w*)(?:\[\w*\])?\s*(?:\([^;{}]*\)\s*)?;$", re.S)
COMMENT = re.compile(r"/\*.*?\*/", re.S)


def comment_lines(text):
    """The lines of a comment, without its marks."""
    inner = text[2:-2].splitlines()
    return [re.sub(r"^ ?\*? ?", "", each).rstrip() if i else each.strip()
            for i, each in enumerate(inner)]


def expanded(code, kinds):
    """The code, or what a macro in it declares for each of some kinds."""
    declared = re.search(r"#define \w+_DECLARE\(K\)((?:.*\\\n)*.*)", code)
    if not declared:
        return code
    body = re.sub(r" *\\\n", "\n", declared[1]).strip("\n")
    body = "\n".join(each[2:] for each in body.splitlines()).rstrip(";") + ";"
    return "\n".join(re.sub("##K##", kind, body) for kind in kinds)


def declared_in(code, kinds):
    """Name -> declaration, of functions and variables."""
    bare = COMMENT.sub("", expanded(code, kinds))
    bare = re.sub(r"^#(?:.*\\\n)*.*\n?", "", bare, flags=re.M)
    if re.search(r"^(typedef|enum|struct|union) [^;]*{", bare, re.M):
        return {}
    found = {}
    for statement in re.split(r"(?<=;)\n", bare):
        statement = statement.strip()
        match = DECLARED.search(re.sub(r"\(.*\)", "()", statement, flags=re.S))
        if match and not re.match(
                r"typedef|static|ROV_ASSERT|extern \"C\"|struct \w+;", statement):
            found[match[1]] = statement
    return found


class Header:
    def __init__(self, path):
        self.name = path.name
        text = path.read_text(encoding="utf-8")
        match = COMMENT.search(text)
        self.about = comment_lines(match[0])
        first = "\n".join(self.about).strip().split("\n\n")[0].replace("\n", " ")
        self.what = re.split(r"[.:;]( |$)", first.partition(" - ")[2])[0] or self.name
        listed = re.search(r"#define \w+_KINDS\(X\)((?:.*\\\n)*.*)", text)
        self.kinds = re.findall(r"X\((\w+)\)", listed[1]) if listed else []
        self.groups = []  # section's title, its text, the comment, code
        self.read(text[match.end():])

    def read(self, text):
        title, general = "", []
        for block in re.split(r"\n\n+", text):
            heading = re.match(r"/\* [-=]{4} (.*?) [-=]+ \*/", block)
            if heading:
                title, general, block = heading[1], [], block[heading.end():].strip()
            if COMMENT.match(block.strip()) and "*/" not in block.strip()[2:-2]:
                general = comment_lines(block.strip())
                continue
            for piece in re.split(r"\n(?=/\*)", "\n" + block):
                piece = piece.strip()
                comment = re.match(r"/\*.*?\*/(?=\n|$)", piece, re.S)
                lines = comment_lines(comment[0]) if comment else []
                code = piece[comment.end():] if comment else piece
                if code.strip():
                    self.groups.append((title, general, lines, code.strip()))


def sentence(lines):
    text = " ".join(each.strip() for each in lines)
    first = re.split(r"(?<=[.;:])\s", text)[0].rstrip(".;:")
    return first[:120] if first else ""
