"""Generates random gateways and sessions: mostly realistic, with some faults mixed in."""

from hypothesis import strategies as st

from model import (
    ACCESS_DATABASE,
    BACKUP_LOG,
    FOLDER,
    LOGS,
    MENU_TREE,
    RESTORE_LOG,
    SAVE_FILE,
    SUMMARY_FILE,
    VERSION_FILE,
    Gateway,
    Shell,
    sections,
    stored,
)
from recording_device import DATABASE, OTHER_DATABASE

NAMES = [b"sip", b"isdn", b"forward", b"Sip", b"9", b"a.b", b"lcrwizard", b"lcrwizard2", b""]
EXTENSIONS = [b"201", b"202", b"a b", b"x", b"20"]
ODD_NAMES = [b"isdnwizard", b"isdnsignaling", b"a b", b"ENTRY_NOT_FOUND", b"n\0l"]

pick = st.sampled_from
SELDOM = ["usual"] * 19 + ["unusual"]


def mostly(usual, unusual):
    """Draws from usual three times out of four, otherwise from unusual."""
    return st.integers(0, 3).flatmap(lambda n: unusual if n == 3 else usual)


def nearly_always(usual, unusual):
    """Draws from usual fifteen times out of sixteen, otherwise from unusual."""
    return mostly(usual, mostly(usual, unusual))


def joined(pieces, **sizes):
    return st.lists(pieces, **sizes).map(b"".join)


@st.composite
def section(draw, keyword, header, entries):
    """Returns a section in a valid layout, or in an invalid one."""
    opening = draw(
        nearly_always(
            pick([b" {\n", b"\n{\n", b"{\n"]),
            pick(
                [b" { # c\n", b" # {\n", b"\n\n# c\n {\t\n", b"\n", b" {\r\n", b" {x\n", b" { {\n"]
            ),
        )
    )
    closing = draw(nearly_always(pick([b"}\n", b" } \n"]), pick([b"", b"} # c\n", b"}x\n", b"}"])))
    body = b"".join(b"%s%s" % (draw(pick([b"", b"\t", b"  "])), draw(entry)) for entry in entries)
    blank = draw(nearly_always(pick([b" ", b"\t"]), pick([b"", b"  \t", b" # ", b"x"])))
    return keyword + blank + draw(header) + opening + body + closing


@st.composite
def entry(draw, key, value, sign=b"="):
    blanks = st.sampled_from([b"", b"", b" ", b"\t "])
    line = draw(key) + draw(blanks) + sign + draw(blanks) + draw(value)
    return line + draw(mostly(st.just(b"\n"), pick([b" # c\n", b"\r\n", b" \n", b"#c\n"])))


junk = pick(
    [b"\n", b"# note\n", b"nonsense\n", b"{\n", b"}\n", b"a=b\n", b"ITEM\n", b"section\n", b"\0\n"]
    + [b"ITEMS x {\n", b"ITEM = 1\n", b'"\n', b"section admin\n", b"\xff\xfe\n", b"ACL=auto\n"]
)


@st.composite
def menu_item(draw):
    name = mostly(pick(NAMES), pick(ODD_NAMES))
    header = st.tuples(
        pick([b"", b"/cgi-bin/", b"a/b/", b"/", b"x.cgi/"]),
        name,
        pick([b"", b".cgi", b".cgi?step=1", b".CGI", b".cgi.cgi", b"/"]),
    ).map(b"".join)
    acl = mostly(
        pick([b"auto", b"auto,extension", b"admin,auto"]),
        pick(
            [
                b"admin",
                b"extension",
                b"",
                b"AUTO",
                b"xautox",
                b"extensionauto",
                b'"auto # extension"',
            ]
        ),
    )
    words = joined(
        pick([b"Call", b" ", b"for#", b" # ", b'"', b"SIP", b"\0", b"\xc3\xa4"]), max_size=5
    )
    caption = mostly(words.map(lambda text: b'"' + text + b'"'), words)
    entries = [
        entry(nearly_always(st.just(b"ACL"), st.just(b"acl")), acl),
        entry(nearly_always(st.just(b"CAP"), st.just(b"cap")), caption),
    ]
    extra = draw(st.lists(st.one_of(entries[0], entries[1], junk), max_size=2))
    order = draw(st.permutations(entries))[: draw(nearly_always(st.just(2), pick([0, 1])))]
    return draw(section(b"ITEM", header, [*order, *map(st.just, extra)]))


menu_trees = joined(mostly(menu_item(), junk), min_size=2, max_size=9)


@st.composite
def database(draw):
    kind = mostly(
        pick([b"attendant", b"extension", b"pickup", b"callpark", b"paging"]),
        pick([b"trunk", b"Extension", b"admin", b"extension x", b""]),
    )
    value = mostly(
        pick(EXTENSIONS), pick([b"", b"v" * 5000, b'"201"', b"201\0", b"e#1", b"2 # 01"])
    )
    entries = entry(pick([b"a", b"b", b"201", b""]), value)
    one = st.lists(st.just(entries), min_size=1, max_size=4).flatmap(
        lambda e: section(b"section", kind, e)
    )
    return draw(joined(mostly(one, junk), min_size=1, max_size=5))


@st.composite
def access_database(draw, user, password):
    entries = [
        entry(st.just(b"user_name"), st.just(user)),
        entry(st.just(b"password"), st.just(password)),
    ]
    wrong = entry(pick([b"user_name", b"password", b"other"]), pick([b"root", b"", b"gateway"]))
    usual = b"section admin {\n user_name = " + user + b"\n password = " + password + b"\n}\n"
    made = section(
        b"section", pick([b"admin", b"admin", b"Admin"]), [*entries, *draw(pick([[], [wrong]]))]
    )
    return draw(nearly_always(st.just(usual), joined(st.one_of(made, made, junk), max_size=3)))


version_files = st.one_of(
    st.just(b"Version: 2.1.4\n"),
    joined(
        st.one_of(
            entry(
                pick([b"Version", b"VERSION", b"Build"]),
                pick([b"2.1", b"", b"a:b", b"1 # x", b'"3"']),
                b":",
            ),
            junk,
        ),
        max_size=4,
    ),
)

summaries = st.one_of(
    joined(pick([b"a=1\n", b"sip.port=5060\n", b"# x\n"]), max_size=4).map(
        lambda t: b"VERSION=1\n" + t
    ),
    joined(
        st.one_of(
            pick([b"VERSION", b"VERSION=1\n", b"VERS", b"ION", b"\n", b"\0", b"a=1\n", b"\xff"]),
            st.integers(240, 260).map(lambda n: b"x" * n),
            st.integers(1, 10).map(lambda n: b"y" * n),
        ),
        max_size=8,
    ),
)

save_answers = joined(
    st.one_of(
        pick([b"#ERROR", b"#VAL", b"#MSG", b"#END", b"\\n", b"\n", b"port", b" "]),
        pick(
            [b"#ERROR_GLOBAL", b"_GLOBAL", b"#", b"ERROR", b"\\", b"n", b"\0", b"##ERROR", b"\xff"]
        ),
        st.integers(245, 256).map(lambda n: b"z" * n),
    ),
    max_size=10,
)

transfer_logs = st.none() | joined(
    st.one_of(
        pick([b"FINISHED", b"finished", b"\n", b"z", b"\0", b"FINI", b"SHED\n"]),
        st.integers(1021, 1026).map(lambda n: b"x" * n),
        st.integers(1021, 1026).map(lambda n: b"x" * n + b"\nFINISHED\n"),
    ),
    max_size=6,
)

# What is typed

setting = mostly(
    pick([b"a=1", b"sip.port=5061", b"VERSION=9", b"xVERSION=", b"b=\xe4", b"c=$(id);`id`", b"#x"]),
    st.one_of(
        st.integers(250, 260).map(lambda n: b"w" * n),
        st.text(st.characters(min_codepoint=33, max_codepoint=126), min_size=1, max_size=8).map(
            str.encode
        ),
    ),
)
blank = pick([b" ", b" ", b" ", b"\t", b"  ", b" \t"])
part = mostly(pick(NAMES), pick(ODD_NAMES[:-1]))
simple_commands = [b"list", b"help", b"log_ls", b"save", b"save", b"get", b"show"]
not_quite = [
    b"List",
    b"EXIT",
    b"exi",
    b"saves",
    b"show=cm",
    b"\\help",
    b"'list'",
    b"get;",
    b"log_ls\xa0",
]


def spaced(*words):
    return st.tuples(*[piece for word in words for piece in (blank, word)][1:]).map(b"".join)


answers_to_questions = st.one_of(
    pick(
        [
            b"",
            b"10.0.0.1",
            b"21",
            b"/b",
            b"b/",
            b".x",
            b"admin",
            b"p@w",
            b"a b",
            b"o'k",
            b"%41",
            b"%0ax",
            b"%250Dx",
            b"~",
        ]
    ),
    joined(
        pick([b"$(id)", b"`", b'"', b"\\", b"'", b";", b" ", b"\t", b"|", b"x", b"/", b"\xfc"]),
        max_size=4,
    ),
)
dialogue = st.tuples(
    pick([b"backup", b"restore", b"backup x", b"restore"]), *[answers_to_questions] * 5
).map(b"\n".join)


def one_of_these_or(names, others):
    """Returns mostly one of the names, if there are any."""
    return mostly(pick(names), others) if names else others


def lines(general, per_extension, extensions):
    """Returns lines typed at the prompt of a device that has these parts and extensions."""
    general = one_of_these_or(general, part)
    per_extension = one_of_these_or(per_extension, part)
    extension = one_of_these_or(extensions, pick(EXTENSIONS))
    get = st.just(b"get")
    line = st.one_of(
        setting,
        spaced(setting, pick([b"b=2", b"exit", b"="])),
        st.tuples(setting, setting, st.just(b"save")).map(b"\n".join),
        st.tuples(setting, pick([b"save", b"save x"])).map(b"\n".join),
        pick(simple_commands),
        spaced(
            pick([b"list", b"help", b"log_ls", b"save"]),
            pick([b"x", b"get", b"help", b"HELP", b"get x"]),
        ),
        st.tuples(get, general).map(b" ".join),
        spaced(get, general),
        st.tuples(get, per_extension, extension).map(b" ".join),
        st.tuples(get, per_extension, extension).map(b" ".join),
        spaced(get, st.one_of(general, per_extension), extension),
        spaced(st.just(b"show"), pick([*LOGS])),
        spaced(st.just(b"show"), pick([b"SIP", b"q.931", b"sip x", b"/etc/passwd", b"cm;reboot"])),
        pick(not_quite),
        blank,
        dialogue,
        mostly(
            st.just(b""),
            st.integers(98, 103).map(
                lambda n: b"\n".join(b"s%d=1" % i for i in range(n)) + b"\nsave"
            ),
        ),
    )
    ragged = st.tuples(st.just(b"") | blank, line, st.just(b"") | blank).map(b"".join)
    return st.lists(mostly(line, ragged), min_size=1, max_size=16)


def what_can_be_named(gateway):
    """Returns the names of general parts, extension parts and extensions that can be typed."""
    shell = Shell(gateway, b"")
    shell.load_menu_tree()
    values = {
        stored(value)
        for path in (DATABASE, OTHER_DATABASE)
        for _, entries in sections(shell.content(path) or b"", b"section")
        for _, value in entries
    }
    return [
        sorted(name for name in names if name and all(32 <= c < 127 for c in name))
        for names in (shell.general, shell.per_extension, values)
    ]


@st.composite
def made_up_sessions(draw):
    """Returns (gateway, typed bytes)."""
    user = draw(mostly(st.just(b"admin"), pick([b"", b"a b", b"ad#min", b'"x"', b"\xe4"])))
    password = draw(mostly(st.just(b"gateway"), pick([b"", b"p w", b"pa#ss", b"x" * 4095, b"#"])))
    contents = {
        MENU_TREE: menu_trees,
        DATABASE: database(),
        OTHER_DATABASE: database(),
        ACCESS_DATABASE: access_database(user, password),
        VERSION_FILE: version_files,
    }
    files = {
        path: draw(content)
        for path, content in contents.items()
        if path == ACCESS_DATABASE or draw(pick(SELDOM)) == "usual"
    }
    left_behind = [SUMMARY_FILE, SAVE_FILE, BACKUP_LOG, RESTORE_LOG, *LOGS.values()]
    for path in draw(st.lists(pick(left_behind), unique=True)):
        files[path] = draw(pick([b"", b"old\n", b"VERSION\nold\0er\n", b"\xff" * 300]))
    if draw(pick(SELDOM)) == "unusual":
        files[draw(pick([SUMMARY_FILE, SAVE_FILE, DATABASE, VERSION_FILE, MENU_TREE]))] = FOLDER
    gateway = Gateway(
        files,
        environment=draw(
            mostly(
                st.just({}),
                st.dictionaries(
                    pick(["TARN_PATH", "QUERY_STRING", "PATH_INFO"]), pick([b"", b"/alt/", b"/alt"])
                ),
            )
        ),
        client=draw(pick(SELDOM)) == "usual",
        answers=draw(
            st.lists(st.tuples(mostly(summaries, st.none()), save_answers), min_size=1, max_size=6)
        ),
        transfers=draw(st.lists(st.tuples(transfer_logs, pick([0, 0, 1, 7])), max_size=3)),
    )
    right = user + b"\n" + password + b"\n"
    wrong = st.tuples(
        pick([user, user + b" ", user.upper(), b"", b"root"]),
        pick([password, b"no", password + b"x", b""]),
    ).map(lambda pair: b"\n".join(pair) + b"\n")
    attempts = draw(nearly_always(st.just(b""), joined(wrong, max_size=3)))
    typed = draw(lines(*what_can_be_named(gateway)))
    ending = draw(
        mostly(
            pick([b"exit\n", b"exit now\n"]), pick([b"", b"exit", b"save", b"a=1", b"restore\nx"])
        )
    )
    return gateway, attempts + right + b"".join(text + b"\n" for text in typed) + ending
