"""The cases of bench/compare for transforms: codecs, ciphers and layers against other programs."""

import os
import random
import shutil
import subprocess

from comparison import (BLOCK, MIB, Case, Comparison_Failed, Program, Target, aside, file_url,
                        to_file, warm)
from data import make_random

SEED = 20261121
KEY, IV = "00" * 32, "00" * 16
CODECS = (("zstd", 1), ("zstd", 3), ("lzop", 1), ("lzop", 3))
CIPHERS = ("aes-256-cbc", "aes-256-ctr")
# How many times the peer's CPU time is allowed.
MOST = {"zstd": 1 / 0.97, "lzop": 1.0, "openssl enc": 1.0}
SUFFIX = {"zstd": ".zst", "lzop": ".lzo"}


def make_usr(path, size):
    """Text and binaries, as they come on a system."""
    found = []
    for top in ("/usr/bin", "/usr/lib", "/usr/share"):
        for directory, _, names in os.walk(top):
            for name in names:
                full = os.path.join(directory, name)
                if os.path.isfile(full) and not os.path.islink(full):
                    found.append(full)
    found.sort()
    random.Random(SEED).shuffle(found)
    with open(path, "wb") as out:
        for name in found:
            try:
                with open(name, "rb") as file:
                    out.write(file.read(min(4 * MIB, size - out.tell())))
            except OSError:
                continue
            if out.tell() >= size:
                return
    raise Comparison_Failed(f"/usr holds less than {size // MIB} MiB")


def make_zeros(path, size):
    with open(path, "wb") as file:
        for _ in range(size // BLOCK):
            file.write(bytes(BLOCK))


def silent(command):
    """A program that writes to standard output, which goes nowhere."""
    return ["sh", "-c", 'exec "$@" >/dev/null', "sh"] + command


def encoder(codec, level, source):
    if codec == "zstd":
        return ["zstd", "--single-thread", "-q", f"-{level}", "-c", source]
    return ["lzop", f"-{level}", "-c", source]


def decoder(codec, source):
    return [codec, "-dc", source] if codec == "lzop" else ["zstd", "-q", "-dc", source]


def cipher_command(cipher, source, *more):
    digits = {"128": 32, "192": 48, "256": 64}[cipher.split("-")[1]]
    return ["openssl", "enc", f"-{cipher}", "-K", KEY[:digits], "-iv", IV, "-in", source, *more]


def write_output(command, path):
    with open(path, "wb") as out:
        subprocess.run(command, stdout=out, check=True)


def same_as(command, source):
    """Whether a program's output is the source again."""
    with subprocess.Popen(command, stdout=subprocess.PIPE) as peer:
        with open(source, "rb") as file:
            while True:
                block = file.read(BLOCK)
                if peer.stdout.read(len(block) or 1) != block:
                    return False
                if not block:
                    return True


def memory_cases(rate, name, source, size):
    def nothing(*_):
        return None

    for codec, level in CODECS:
        stored = f"{source}-{level}{SUFFIX[codec]}"
        aside(write_output, encoder(codec, level, source), stored)
        stack = f"{codec}:{level}"
        targets = [Target("cpu", MOST[codec], codec)]
        yield Case(f"{name}: {stack} alone, compress",
                   [Program("library", [rate, stack, "encode", source]),
                    Program(codec, silent(encoder(codec, level, source)))],
                   targets, size, lambda: warm_file(source), nothing)
        yield Case(f"{name}: {stack} alone, decompress",
                   [Program("library", [rate, stack, "decode", stored]),
                    Program(codec, silent(decoder(codec, stored)))],
                   targets, size, lambda: warm_file(stored), nothing)
        os.remove(stored)
    for cipher in CIPHERS:
        stored = source + ".enc"
        aside(write_output, cipher_command(cipher, source), stored)
        targets = [Target("cpu", MOST["openssl enc"], "openssl enc")]
        yield Case(f"{name}: {cipher} alone, encrypt",
                   [Program("library", [rate, cipher, "encode", source]),
                    Program("openssl enc", silent(cipher_command(cipher, source)))],
                   targets, size, lambda: warm_file(source), nothing)
        yield Case(f"{name}: {cipher} alone, decrypt",
                   [Program("library", [rate, cipher, "decode", stored]),
                    Program("openssl enc", silent(cipher_command(cipher, stored, "-d")))],
                   targets, size, lambda: warm_file(stored), nothing)
        os.remove(stored)


def warm_file(path):
    warm_directory = os.path.dirname(path)
    warm(warm_directory)


def file_cases(runner, cio, name, source, size):
    """cio and the tool of the format, from file to file."""
    target = os.path.join(runner.work, "target")
    result = os.path.join(runner.work, "result")
    key_file = os.path.join(runner.work, "key")
    with open(key_file, "w") as file:
        file.write(f"key={KEY}\niv={IV}\n")
    os.chmod(key_file, 0o600)
    jobs = [(f"{codec}:{level}", ["--compress", codec, "--level", str(level)], codec,
             encoder(codec, level, source), lambda path, c=codec: decoder(c, path))
            for codec, level in CODECS]
    jobs += [(cipher, ["--encrypt", cipher, "--key-file", key_file], "openssl enc",
              cipher_command(cipher, source),
              lambda path, c=cipher: cipher_command(c, path, "-d"))
             for cipher in CIPHERS]
    for title, flags, peer, encode, decode in jobs:
        stored = os.path.join(target, "data")

        def clear():
            shutil.rmtree(target, ignore_errors=True)
            os.mkdir(target)
            warm_file(source)

        def check_stored(program, thorough):
            if thorough and not same_as(decode(stored), source):
                raise Comparison_Failed(f"{program.name}: what it stored is not the source")

        targets = [Target("cpu", MOST[peer], peer), Target("peak", 64)]
        yield Case(f"{name}: {title}, file to file, put",
                   [Program("cio put", [cio, "put", *flags, source, file_url(target), "data"]),
                    Program(peer, to_file(encode, stored))],
                   targets, size, clear, check_stored)

        def refill():
            clear()
            write_output(encode, stored)
            if os.path.exists(result):
                os.remove(result)
            warm_file(stored)

        def check_result(program, thorough):
            if thorough and not same_as(["cat", result], source):
                raise Comparison_Failed(f"{program.name}: the result is not the source")

        yield Case(f"{name}: {title}, file to file, get",
                   [Program("cio get", [cio, "get", *flags_for_get(flags), file_url(target),
                                        "data", result]),
                    Program(peer, to_file(decode(stored), result))],
                   targets, size, refill, check_result)
    shutil.rmtree(target, ignore_errors=True)


def flags_for_get(flags):
    """The same without the level, which only writing needs."""
    return flags[:2] if "--level" in flags else flags


def layer_cases(runner, rate, source, size):
    """What the layers that do not change bytes cost on a local upload."""
    target = os.path.join(runner.work, "target")

    def clear():
        shutil.rmtree(target, ignore_errors=True)
        os.mkdir(target)
        warm_file(source)

    def check(program, thorough):
        pass

    for base, title in (("null", "plain"), ("zstd:3", "zstd:3")):
        for layer, most in (("resume", 1.03), ("rate", 1.01)):
            stack = layer if base == "null" else f"{base}+{layer}"
            yield Case(f"a local upload, {title}, with and without {layer}",
                       [Program(f"with {layer}", [rate, stack, "store", source, target]),
                        Program("without", [rate, base, "store", source, target])],
                       [Target("cpu", most, "without")], size, clear, check)
    shutil.rmtree(target, ignore_errors=True)


def measured(command):
    """Bytes and CPU seconds that transform_rate prints of itself."""
    result = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True)
    plain, seconds, stored = result.stdout.split()
    return int(plain), float(seconds), int(stored)


def compare_speed(rate, work, runs):
    """Ciphers against `openssl speed`, in turn; data that stays in the cache."""
    block = os.path.join(work, "block")
    make_random(block + "-large", BLOCK)
    with open(block + "-large", "rb") as large, open(block, "wb") as file:
        file.write(large.read(262144))
    print("\nciphers against `openssl speed -evp`, blocks of 256 KiB, GB a CPU second")
    for cipher in CIPHERS:
        for title, direction, flag in (("encrypt", "encode", []),
                                       ("decrypt", "decode-hollow", ["-decrypt"]),
                                       ("decrypt, copied from memory", "decode", ["-decrypt"])):
            source = block
            if direction == "decode":
                source = block + ".enc"
                write_output(cipher_command(cipher, block), source)
            ours, theirs = [], []
            for _ in range(runs):
                plain, seconds, _ = measured([rate, cipher, direction, source, "8000"])
                ours.append(plain / seconds / 1e9)
                speed = subprocess.run(["openssl", "speed", "-mr", "-seconds", "1", "-bytes",
                                        "262144", *flag, "-evp", cipher], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, check=True, text=True).stdout
                theirs.append(float(speed.strip().splitlines()[-1].split(":")[-1]) / 1e9)
            mine, other = sorted(ours)[runs // 2], sorted(theirs)[runs // 2]
            verdict = "met" if mine / other >= 0.90 else "NOT met"
            print(f"  {cipher}, {title}: {mine:.2f}, openssl {other:.2f}: {mine / other:.2f} of it, "
                  f"target 0.90: {verdict}", flush=True)


def compare_stack(rate, source, runs):
    """The full stack against the sum of its layers."""
    zst, enc = source + ".zst", source + ".zst.enc"
    write_output(encoder("zstd", 3, source), zst)
    write_output(cipher_command("aes-256-cbc", zst), enc)
    stacks = (("zstd:3+aes-256-cbc+rate+resume", source), ("zstd:3", source), ("aes-256-cbc", zst),
              ("rate+resume", enc))
    figures = {stack: [] for stack, _ in stacks}
    for _ in range(runs):
        for stack, data in stacks:
            figures[stack].append(measured([rate, stack, "encode", data])[1])
    medians = {stack: sorted(found)[runs // 2] for stack, found in figures.items()}
    full = medians.pop(stacks[0][0])
    print(f"\nthe full stack: {full:.3f} s of CPU, the sum of its layers {sum(medians.values()):.3f}: "
          f"{full / sum(medians.values()):.3f} x, target 1.05: "
          f"{'met' if full <= 1.05 * sum(medians.values()) else 'NOT met'}", flush=True)
    os.remove(zst)
    os.remove(enc)


def run_transforms(runner, cio, rate, size):
    for name, make in (("usr", make_usr), ("random", make_random), ("zeros", make_zeros)):
        folder = os.path.join(runner.work, name)
        os.mkdir(folder)
        source = os.path.join(folder, "data")
        aside(make, source, size)
        for case in memory_cases(rate, name, source, size):
            runner.run(case)
        for case in file_cases(runner, cio, name, source, size):
            runner.run(case)
        if name == "usr":
            for case in layer_cases(runner, rate, source, size):
                runner.run(case)
            compare_stack(rate, source, runner.runs)
        shutil.rmtree(folder)
    compare_speed(rate, runner.work, runner.runs)
