"""The cases of block images: cio image against dd, qemu-img and partclone."""

import filecmp
import os
import random
import shutil

from comparison import MIB, Case, Comparison_Failed, Program, Target, aside, file_url, warm
from data import SEED

PAGE = 64 << 10


def make_file_system(runner, image, size, bytes_of_files):
    """An ext4 file system in a sparse file, with files of random bytes."""
    files = image + ".files"
    os.mkdir(files)
    generator = random.Random(SEED)
    number = 0
    while bytes_of_files > 0:
        length = min(generator.randint(1, 64) * MIB, bytes_of_files)
        with open(os.path.join(files, f"file-{number:04}.bin"), "wb") as file:
            for _ in range(0, length, MIB):
                file.write(generator.randbytes(MIB))
        bytes_of_files -= length
        number += 1
    runner.measure(["mke2fs", "-q", "-t", "ext4", "-b", "4096", "-E", "lazy_itable_init=1",
                    "-d", files, image, f"{size // 1024}k"])
    shutil.rmtree(files)


def make_dense(image, dense):
    """What of the image is data, without what is not: for a program that cannot leave it out."""
    with open(image, "rb", buffering=0) as source, open(dense, "wb") as target:
        while block := source.read(PAGE):
            if block.count(0) != len(block):
                target.write(block)


def check_file_system(program, image, copy, thorough):
    """The restored image holds what the original does, where that is data."""
    if os.path.getsize(copy) != os.path.getsize(image):
        raise Comparison_Failed(f"{program.name}: another size than the source")
    if thorough and not filecmp.cmp(image, copy, shallow=False):
        raise Comparison_Failed(f"{program.name}: other contents than the source")


def image_cases(runner, cio, size, data):
    image = os.path.join(runner.work, "disk.img")
    dense = os.path.join(runner.work, "dense.bin")
    aside(make_file_system, runner, image, size, data)
    aside(make_dense, image, dense)
    written = os.path.getsize(dense)
    title = f"a file system of {size // MIB} MiB with {written // MIB} MiB of data"
    stored = {name: os.path.join(runner.work, f"stored.{name}")
              for name in ("cio", "raw", "dd", "qcow2", "partclone")}
    log = os.path.join(runner.work, "partclone.log")

    def remove():
        for path in stored.values():
            if os.path.exists(path):
                os.unlink(path)

    def prepare_saving():
        remove()
        warm(runner.work)

    def save(name, *options):
        return [cio, "image", "save", image, file_url(runner.work), f"/stored.{name}", *options]

    def check_saved(program, _thorough):
        path = stored[names[program.name]]
        if not written * 0.99 < os.path.getsize(path) < written * 1.1 + 16 * MIB:
            raise Comparison_Failed(f"{program.name}: stored {os.path.getsize(path)} bytes")

    names = {"cio image save": "cio", "save --raw": "raw", "dd": "dd", "qemu-img": "qcow2",
             "partclone": "partclone"}
    saved = {
        "cio image save": save("cio"),
        "save --raw": save("raw", "--raw"),
        "dd": ["dd", f"if={dense}", f"of={stored['dd']}", "bs=64K"],
        "qemu-img": ["qemu-img", "convert", "-f", "raw", "-O", "qcow2", image, stored["qcow2"]],
        "partclone": ["partclone.ext4", "-c", "-q", "-L", log, "-s", image,
                      "-o", stored["partclone"]],
    }
    targets = [Target(measure, limit, other, program)
               for program in ("cio image save", "save --raw")
               for measure, limit, other in (("cpu", 1.1, "dd"), ("cpu", 1, "qemu-img"),
                                             ("wall", 1, "qemu-img"), ("cpu", 1, "partclone"),
                                             ("wall", 1, "partclone"))]
    # What any program takes here counts as memory too: this script's own.
    yield Case(f"{title}, saved", [Program(name, command) for name, command in saved.items()],
               targets + [Target("peak", 32)], written, prepare_saving, check_saved)

    # Each restores what it stored.
    for command in saved.values():
        if not os.path.exists(command[-1]):
            runner.measure(command)
    for name in ("cio", "raw"):
        if not os.path.exists(stored[name]):
            runner.measure(save(name, *(["--raw"] if name == "raw" else [])))
    back = os.path.join(runner.work, "back.img")

    def restore(name):
        return [cio, "image", "restore", file_url(runner.work), f"/stored.{name}", back]

    def remove_back():
        if os.path.exists(back):
            os.unlink(back)

    def prepare_restoring():
        remove_back()
        warm(runner.work)

    def check_restored(program, thorough):
        if program.name == "dd":
            check_file_system(program, dense, back, thorough)
        elif program.name in ("cio image restore", "partclone"):
            # They leave out what no file holds, whatever is there.
            check_file_system(program, image, back, False)
            if thorough:
                runner.measure(["e2fsck", "-fn", back])
        else:
            check_file_system(program, image, back, thorough)

    yield Case(f"{title}, restored", [
        Program("cio image restore", restore("cio")),
        Program("restore of --raw", restore("raw")),
        Program("dd", ["dd", f"if={stored['dd']}", f"of={back}", "bs=64K"]),
        Program("qemu-img", ["qemu-img", "convert", "-f", "qcow2", "-O", "raw", stored["qcow2"],
                             back]),
        Program("partclone", ["partclone.restore", "-q", "-L", log, "-s", stored["partclone"],
                              "-o", back, "--restore_raw_file"])],
        [Target(measure, limit, other, program)
         for program in ("cio image restore", "restore of --raw")
         for measure, limit, other in (("cpu", 1.1, "dd"), ("cpu", 1, "qemu-img"),
                                       ("wall", 1, "qemu-img"), ("cpu", 1, "partclone"),
                                       ("wall", 1, "partclone"))] + [Target("peak", 32)],
        written, prepare_restoring, check_restored)
    remove_back()
    remove()
    os.unlink(image)
    os.unlink(dense)


def extent_cases(runner, cio, count):
    """Every other block of 512 bytes of a sparse file, so that no two extents join."""
    image = os.path.join(runner.work, "sparse.img")
    extents = os.path.join(runner.work, "extents.txt")
    stored = os.path.join(runner.work, "stored.extents")

    def make():
        with open(image, "wb") as file:
            file.truncate(1024 * count)
        with open(extents, "w", encoding="ascii") as file:
            for number in range(count):
                file.write(f"{1024 * number} 512\n")

    def remove():
        if os.path.exists(stored):
            os.unlink(stored)

    def check(program, _thorough):
        if os.path.getsize(stored) < (512 + 16) * count:
            raise Comparison_Failed(f"{program.name}: stored {os.path.getsize(stored)} bytes")

    aside(make)
    command = [cio, "image", "save", image, file_url(runner.work), "/stored.extents",
               "--extents", extents, "--block-size", "512"]
    # 16 bytes an extent, 16 MiB for everything else, and what this script takes itself.
    floor = runner.measure(["true"]).peak // MIB
    yield Case(f"{count} extents", [Program("cio image save", command)],
               [Target("peak", 16 * count // MIB + 16 + floor)], 528 * count, remove, check)
    remove()
    os.unlink(image)
    os.unlink(extents)


def run_images(runner, cio, size, extents):
    """`size`: bytes of the file system, of which three eighths are data."""
    for case in image_cases(runner, cio, size, 3 * size // 8):
        runner.run(case)
    for case in extent_cases(runner, cio, extents):
        runner.run(case)
