#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Write the seed inputs of every fuzz target: make_seeds.py DIRECTORY

The first bytes of an input are the target's own (see the head of its source); the rest is a document.
"""
import os
import sys

DOCUMENTS = [
    b'{}',
    b'{"a":1}',
    b'{"a":1,"b":{"c":2}}',
    b'{"a":[1,{"x":2},3]}',
    b'{"a":[{},{"b":"c"}],"d":["e","f\\"g"]}',
    b'{ "scenario" : {"TAGS":{"_G":["t0 t1","t2"]}} }',
    b'[[1],[2,[3]],[]]',
    b'[{"kind":"x","id":"1"},{"kind":5,"id":"2"}]',
    b'{"s":"x\\\\","t":"y"}',
    b'{"u":"\\u0041\\n\\/"}',
    b'{"n":42\r\n}',
    b'{"a" 1}',
    b'{"a":x}',
    b'{}}}}',
    b'{"a":1',
    b'{"z":"\x00"}',
    b'[' * 20 + b']' * 20,
    b'{"a":' * 20 + b'1' + b'}' * 20,
    b'{"' + b'n' * 520 + b'":1,"b":"' + b'v' * 300 + b'"}',
    b'[1,"a",[2],{"b":3},null]',
]
WINDOWS = [0, 1, 2, 7, 64, 255]
SCRIPTS = [b'\x00\x04\x04\x04\x01', b'\x00\x04\x02\x05\x0f\x05\x0f\x03\x04\x04', b'\x02\x05\x05\x05\x03',
           b'\x00\x06\x04\x08\x0f\x1f\x2f\x07\x01\x01\x04']
PATHS = [b'$', b'$.a', b'$.scenario.TAGS._G[0]', b'$.a[1].x', b'$[kind=x].id', b'$.list[].b', b'..a[-2]']


def moves():
    for script in SCRIPTS:
        for window in WINDOWS:
            for document in DOCUMENTS:
                yield bytes([window, 5, len(script)]) + script + document


def tree():
    for window in WINDOWS:
        for document in DOCUMENTS:
            yield bytes([window, 32]) + document


def expr():
    for path in PATHS:
        for document in DOCUMENTS:
            yield bytes([len(path)]) + path + document


def edit():
    for operation in (0, 1, 2, 4):
        for limit in (20, 255):
            for document in DOCUMENTS:
                yield bytes([operation, 1, limit, 1, 1]) + b'av' + document


def tags():
    yield from (b'Smoke\\u0054est', b'Smoke\0' + b'0054est', b'caf\\u00e9', b'\\u00g0', b'\\u', b'a\0b')


def main():
    targets = {'json_moves': moves, 'json_tree': tree, 'json_expr': expr, 'json_edit': edit,
               'tags': tags}
    for name, make in targets.items():
        directory = os.path.join(sys.argv[1], name)
        os.makedirs(directory, exist_ok=True)
        for number, seed in enumerate(make()):
            with open(os.path.join(directory, f'{number:04}'), 'wb') as out:
                out.write(seed)


main()
