#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Documents made to take long: twice the bytes take at most 2.3 times as long, at any window; nothing
below 1 MB takes a second under the sanitizers; a tree beyond 4 GiB is refused."""
import os
import subprocess
import sys
import tempfile
from pathlib import Path

SLICE = os.environ.get('SLICE') == '1'
TOP = Path(__file__).resolve().parents[1]
DEEP = b'[' * 30000 + b']' * 30000 + b','
# Name: what comes first, what is repeated, what ends it, and the MB of the largest document: less than 64
# where the tree has up to 300 times the size of the text.
FAMILIES = {
    'deep arrays': (b'{"a":[', DEEP, b'[]]}', 8),
    'deep objects': (b'{"a":[', b'{"a":' * 9000 + b'1' + b'}' * 9000 + b',', b'{}]}', 16),
    'members': (b'{', b'"a":1,', b'"b":2}', 16),
    'numbers': (b'{"a":[', b'1,', b'1]}', 8),
    'commas': (b'{"a":[1', b',', b'1]}', 4),
    'commas among members': (b'{"a":1', b',', b'"b":2}', 64),
    'long names': (b'{', b'"' + b'n' * 70000 + b'":1,', b'"b":2}', 64),
    'one string': (b'{"a":"', b'0123456789abcdef', b'"}', 64),
    'strings': (b'{"a":[', b'"' + b's' * 100000 + b'",', b'"b"]}', 64),
    'escapes': (b'{"a":"', b'\\n', b'"}', 64),
    'unicode escapes': (b'{"a":"', b'\\u00e9', b'"}', 64),
    'escaped backslashes': (b'{"a":"', b'\\\\', b'x"}', 64),
    'ends in a backslash': (b'{', b'"a":"\\\\",', b'"b":2}', 16),
    'blanks': (b'{"a":1', b' \n\t', b',"b":2}', 64),
    'one number': (b'{"a":', b'1234567890', b'}', 64),
    'foreign items': (b'{"a":[{"x":1},', b'"x",[],2,', b'{"y":1}]}', 64),
    'skipped brackets': (b'{"a":[{"x":1},', b'[' * 40000 + b']' * 40000 + b',', b'{"y":1}]}', 64),
    'brackets in strings': (b'{"a":["', b'[{', b'"]}', 64),
    'empty objects': (b'{"a":[', b'{},', b'{}]}', 8),
    'empty strings': (b'{"a":[', b'"",', b'""]}', 8),
    'unterminated': (b'{"a":"', b'x', b'', 64),
}


def compile_driver(path, *flags):
    sources = [TOP / 'fuzz/growth.c', *TOP.glob('core/base/libvxcore/*.cpp')]
    subprocess.run(['g++', '-std=gnu++20', '-fno-exceptions', '-fno-rtti', *flags, '-x', 'c++',
                    f'-I{TOP}/base/include', *sources, '-o', path], check=True)


def measure(driver, family, size, window):
    """CPU seconds for a document of about this size, and whether there was a tree."""
    first, repeated, last, _ = FAMILIES[family]
    file.write_bytes(first + repeated * (int(size) // len(repeated)) + last)
    done = subprocess.run([driver, file, str(window or file.stat().st_size + 1)], check=True,
                          stdout=subprocess.PIPE)
    return float(done.stdout.split()[0]), done.stdout.split()[1] == b'1'


def growth(family, size, window):
    """How much longer twice the size takes. A busy machine gets four chances; slow code has none."""
    least = 9.0
    for _ in range(4):
        small, large = (min(measure(fast, family, n, window)[0] for _ in range(3))
                        for n in (size, 2 * size))
        least = min(least, large / max(small, 0.005))
        if least <= 2.3:
            break
    print(f'{family}, window {window}: {large:.3f} s, {least:.2f} times', file=sys.stderr)
    return least


with tempfile.TemporaryDirectory(dir='/dev/shm' if os.path.isdir('/dev/shm') else None) as folder:
    fast, checked, file = Path(folder, 'fast'), Path(folder, 'checked'), Path(folder, 'a.json')
    compile_driver(fast, '-O2')
    worst = max(growth(family, (FAMILIES[family][3] << 20) / (8 if SLICE else 2), window)
                for family in FAMILIES for window in ((0,) if SLICE else (0, 8192)))
    slowest, was_built = 0.0, False
    if not SLICE:
        compile_driver(checked, '-O1', '-g', '-fsanitize=address,undefined')
        slowest = max(measure(checked, family, 1000000, window)[0]
                      for family in FAMILIES for window in (0, 8192))
        was_built = measure(fast, 'numbers', 28 << 20, 0)[1]
checks = '' if SLICE else f', 1 MB in {slowest:.2f} s under sanitizers, the tree of 28 MB '
print(f'11 time families: {len(FAMILIES)}, twice the size in {worst:.2f} times the time{checks}'
      + ('' if SLICE else 'BUILT' if was_built else 'refused'))
sys.exit(0 if worst <= 2.3 and slowest < 1 and not was_built else 1)
