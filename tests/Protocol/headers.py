"""Reads the protocol's headers: the Blobs, records and values of Blob.h, the constants of Names.h, the exception codes."""
import re

COMMENT = re.compile(r"//.*$", re.M)
CONSTANT = re.compile(r"^constexpr (?P<type>\w+) (?P<name>\w+)(?:\[\])? = (?P<value>.*);", re.M)
ENUMERATOR = re.compile(r"^    (?P<name>\w+) = (?P<number>\d+), *///< (?P<way>both ways|Agent to Bridge|Bridge to Agent)\b",
                        re.M)
STRUCT = re.compile(r"^struct (?P<name>\w+)\n\{\n(?P<body>.*?)^\};", re.M | re.S)
MEMBER = re.compile(r"^(?P<type>\w+) (?P<name>\w+)(?:\[(?P<count>\w+)\])?$")
OWN_TYPE = re.compile(r"static constexpr BlobType type = BlobType::(?P<blob>\w+)$")


def constants(text):
    """Name and value, without quotes and escapes, of each constant."""
    return {match["name"]: match["value"].removeprefix("L").strip('"').replace("\\\\", "\\")
            for match in CONSTANT.finditer(text)}


def blobs(text):
    """Number and way ("both ways", "Agent to Bridge", "Bridge to Agent") of each Blob, by name."""
    enumeration = text[text.index("enum class BlobType"):]
    enumeration = enumeration[:enumeration.index("};")]
    found = {match["name"]: (int(match["number"]), match["way"]) for match in ENUMERATOR.finditer(enumeration)}
    if len(found) != enumeration.count(" = "):
        raise ValueError("a Blob in BlobType has no number, or no comment that begins with its way")
    return found


def enumerators(text, enumeration):
    """Value and name of each enumerator, in order, as texts."""
    body = re.search(rf"^enum (?:class )?{enumeration} : uint32_t\n\{{\n(.*?)^\}};", text, re.M | re.S)[1]
    return [(value, name) for name, value in re.findall(r"^    (\w+) = (\d+),", body, re.M)]


def exception_codes(text):
    """Code and name of each row, in order, as texts."""
    return re.findall(r'\{(0x[0-9A-F]{8}),\s*\{"(\w+)"', text)


class Record:
    """A struct: `blob` is the Blob whose fixed part it is, None if there isn't exactly one."""

    def __init__(self, body, known):
        self.blob = None
        self.members = []  # name, type, count of elements (None for no array)
        for declaration in COMMENT.sub("", body).split(";"):
            words = " ".join(declaration.split())
            own = OWN_TYPE.match(words)
            member = MEMBER.match(words)
            if own:
                self.blob = own["blob"]
            elif member:
                count = member["count"]
                self.members.append((member["name"], member["type"], count and int(known.get(count, count), 0)))
            elif words:
                raise ValueError(f"a declaration that isn't a plain member: {words}")


def records(text):
    known = constants(text)
    return {match["name"]: Record(match["body"], known) for match in STRUCT.finditer(text)}
