"""The data of the comparisons: how it is made, and whether a copy of it is the same."""

import filecmp
import os
import random

from comparison import BLOCK, Comparison_Failed

SEED = 20261120
TREE_DIRECTORIES = 200
TREE_FILES = 100  # in each of them
TREE_LARGEST = 16 << 10
# What a tree takes at most, and on the disk on average.
TREE_MOST = TREE_DIRECTORIES * TREE_FILES * TREE_LARGEST
TREE_ON_DISK = TREE_DIRECTORIES * TREE_FILES * (TREE_LARGEST + 4096) // 2


def make_random(path, size):
    generator = random.Random(SEED)
    with open(path, "wb") as file:
        for _ in range(size // BLOCK):
            file.write(generator.randbytes(BLOCK))


def make_tree(path, directories=TREE_DIRECTORIES):
    generator = random.Random(SEED)
    for directory in range(directories):
        folder = os.path.join(path, f"directory-{directory:03}")
        os.mkdir(folder)
        for number in range(TREE_FILES):
            with open(os.path.join(folder, f"file-{number:03}.bin"), "wb") as file:
                file.write(generator.randbytes(generator.randint(0, TREE_LARGEST)))


def make_entries(path, count):
    directory = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
    for number in range(count):
        os.close(os.open(f"entry-{number:07}.dat", os.O_WRONLY | os.O_CREAT, 0o644,
                         dir_fd=directory))
    os.close(directory)


def sizes(path):
    found = {}
    for directory, _, names in os.walk(path):
        for name in names:
            full = os.path.join(directory, name)
            found[os.path.relpath(full, path)] = os.path.getsize(full)
    return found


def check_copy(program, source, copy, contents):
    expected = sizes(source)
    if sizes(copy) != expected:
        raise Comparison_Failed(f"{program.name}: other files or sizes than in the source")
    if contents:
        _, mismatch, errors = filecmp.cmpfiles(source, copy, expected, shallow=False)
        if mismatch or errors:
            raise Comparison_Failed(f"{program.name}: other contents: {(mismatch + errors)[:5]}")


def check_lines(name, path, expected):
    """The lines of a listing of so many entries."""
    with open(path, "rb") as file:
        lines = sum(block.count(b"\n") for block in iter(lambda: file.read(BLOCK), b""))
    # find also prints the directory itself, ls its total.
    if not expected <= lines <= expected + 1:
        raise Comparison_Failed(f"{name}: {lines} lines for {expected} entries")
