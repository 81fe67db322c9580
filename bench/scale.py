"""How much is measured: in full, or just enough to see that every measurement works."""

from dataclasses import dataclass

MIB = 1024 * 1024


@dataclass(frozen=True)
class Scale:
    rounds: int  # of what takes milliseconds
    long_rounds: int  # of what takes a tenth of a second and more
    keys: int  # typed at each prompt, a multiple of KEYS_AT_A_TIME
    counted_keys: int  # typed while system calls are counted; they fit into one row
    text_size: int  # bytes of a summary, and of a save program's answer
    answer_sizes: tuple  # bytes: the answers between which the growth of save is taken
    extensions: int  # entries of the extension database
    menu_sizes: tuple  # items: the menu trees between which the growth of start-up is taken
    listed_parts: int


KEYS_AT_A_TIME = 20

FULL = Scale(
    rounds=200,
    long_rounds=15,
    keys=4000,
    counted_keys=50,
    text_size=64 * MIB,
    answer_sizes=(MIB, 4 * MIB),
    extensions=1_000_000,
    menu_sizes=(1_000, 3_000, 10_000, 30_000, 100_000),
    listed_parts=100_000,
)
QUICK = Scale(
    rounds=3,
    long_rounds=2,
    keys=20,
    counted_keys=10,
    text_size=MIB,
    answer_sizes=(MIB // 4, MIB),
    extensions=50_000,
    menu_sizes=(1_000, 5_000),
    listed_parts=5_000,
)
