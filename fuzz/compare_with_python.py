#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Random documents that every JSON parser must accept, read by the library under sanitizers and by
Python's json: compare_with_python.py [COUNT [SEED]]

Arrays are of one kind of items, names are plain, no text ends in a backslash, and escapes are those that the
library decodes (any other stands for a zero byte): what the library's header warns of is left out.
"""
import json
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent
OBJECT, ARRAY, STRING, LITERAL = range(4)
CHARACTERS = ['a', 'Z', '0', ' ', '{', '}', '[', ']', ':', ',', '\\"', '\\n', '\\r', '\\t', '/', "'", '\x7f', 'é', '漢',
              '\U0001F600', 'word ', '\\\\x', '<>&']
NUMBERS = ['0', '-0', '1', '-1', '123456789012345678901234567890', '1.5', '-0.0001', '1e5', '1E+5', '2e-300', '9.99E99',
           'true', 'false', 'null']


def space(r):
    return r.choice(['', '', '', ' ', '\n', '\t', '  \n ', '\r\n'])


def blank(r):  # behind a literal: a carriage return would belong to it
    return r.choice(['', '', ' ', '\n', '\t'])


def text(r):
    return '"' + ''.join(r.choice(CHARACTERS) for _ in range(r.choice([0, 1, 3, 8, 40]))) + '"'


def name(r):
    return '"' + ''.join(r.choice('abcXYZ_-. 09é{}[]:,') for _ in range(r.choice([1, 1, 4, 20, 120]))) + '"'


def value(r, depth, kind=None):
    kind = r.randrange(4) if kind is None else kind
    if depth == 0 and kind < STRING:
        kind = LITERAL
    if kind == STRING:
        return text(r) + space(r)
    if kind == LITERAL:
        return r.choice(NUMBERS) + blank(r)
    count = r.choice([0, 1, 2, 3, 10])
    if kind == OBJECT:
        items = [space(r) + name(r) + space(r) + ':' + space(r) + value(r, depth - 1) for _ in range(count)]
        return '{' + (','.join(items) or space(r)) + '}' + space(r)
    inner = r.randrange(4) if depth > 1 else r.choice([STRING, LITERAL])
    return '[' + (','.join(space(r) + value(r, depth - 1, inner) for _ in range(count)) or space(r)) + ']' + space(r)


class Literal(str):
    """A number, true, false or null as it stands in the document."""


class Members(list):
    """The members of an object in order, doubles included."""


def read_by_python(document):
    return json.loads(document, object_pairs_hook=Members, parse_float=Literal, parse_int=Literal)


LITERALS = {True: 'true', False: 'false', None: 'null'}


def lines(node, depth=0, called=''):
    if isinstance(node, (Members, list)):
        kind = OBJECT if isinstance(node, Members) else ARRAY
        yield f'{depth} {kind} {called.encode().hex()} '
        for each in node:
            member, child = each if kind == OBJECT else ('', each)
            yield from lines(child, depth + 1, member)
        return
    is_text = isinstance(node, str) and not isinstance(node, Literal)
    shown = node if isinstance(node, str) else LITERALS[node]
    yield f'{depth} {STRING if is_text else LITERAL} {called.encode().hex()} {shown.encode().hex()}'


def build(directory):
    program = directory / 'peer'
    sources = list((TOP / 'core/base/libvxcore').glob('*.cpp'))
    subprocess.run(['g++', '-std=gnu++20', '-O1', '-g', '-fsanitize=address,undefined', '-fno-sanitize-recover=all',
                    '-I', TOP / 'base/include', TOP / 'fuzz/peer.cpp', *sources, '-o', program], check=True)
    return program


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 10000
    r = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    with tempfile.TemporaryDirectory() as directory:
        program = build(pathlib.Path(directory))
        for first in range(0, count, 2000):
            documents = [value(r, 5, r.choice([OBJECT, OBJECT, ARRAY])) for _ in range(min(2000, count - first))]
            data = b''.join(struct.pack('=I', len(d.encode())) + d.encode() for d in documents)
            out = subprocess.run([program], input=data, stdout=subprocess.PIPE, check=True).stdout.decode()
            # The split leaves an empty text behind the last tree.
            for document, found in zip(documents + [''], out.split('\n\n'), strict=True):
                if document == '':
                    continue
                expected = '\n'.join(lines(read_by_python(document)))
                if expected != found:
                    pairs = list(zip(expected.split('\n'), found.split('\n')))
                    first = next((pair for pair in pairs if pair[0] != pair[1]), 'the one is longer')
                    sys.exit(f'{document!r}\nexpected, found: {first}')
    print(f'{count} documents, read alike by the library and by Python')


main()
