#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Write the seed inputs of every fuzz target into DIRECTORY/NAME: make_seeds.py [--hostile] DIRECTORY

With --hostile, the JSON targets' inputs are families of documents that parsers stumble over, of up to a
megabyte: to be replayed, not to start from. The first bytes of an input are the target's own (see the
head of its source); the rest is a document.
"""
import itertools
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
           b'\x00\x06\x04\x08\x0f\x1f\x2f\x07\x01\x01\x04', b'\x00\x04\x00\x04\x0f\x01\x01\x01\x01\x04',
           b'\x00\x04\x02\x18\x28\x0f\x68\x28\x03\x04']
PATHS = [b'$', b'$.a', b'$.scenario.TAGS._G[0]', b'$.a[1].x', b'$[kind=x].id', b'$.list[].b', b'..a[-2]',
         b'$.a[', b'$[99999999999999999999]', b'$.' + b'n' * 250]


def nested(depth, inside=b''):
    return b'{"a":' + b'[' * depth + inside + b']' * depth + b'}'


def hostile():
    """Families of documents that parsers stumble over."""
    yield from (bytes([byte]) for byte in range(256))
    yield from (b'', b' \t\r\n ' * 50, b'\xef\xbb\xbf{"a":1}', b']', b'}', b'{}' + b'}' * 300, b'[]' + b']' * 300)
    for document in DOCUMENTS:
        yield from (document[:end] for end in range(len(document)))
        yield from (document[:at] + b'\0' + document[at:] for at in range(min(len(document), 80)))
    for depth in (1, 2, 30, 31, 32, 33, 125, 126, 127, 128, 1000, 32766, 32767, 32768):
        yield from (nested(depth), nested(depth, b'1'), b'[' * depth + b']' * depth, b'{"a":' * depth + b'1' + b'}' * depth)
    yield from (b'{"skipped":' + bracket * 70000 + b',"b":1}' for bracket in (b'[', b'{', b']', b'}'))
    for length in (0, 1, 254, 255, 256, 257, 510, 511, 512, 513, 65535, 1000000):
        yield b'{"' + b'n' * length + b'":1,"b":2}'
        yield b'{"scenario":{"TAGS":{"_G":["' + b't' * length + b'"]}}}'
    yield from (b'{"a\\"b":1}', b'{"a":"\\', b'{"a":"\\"', b'{"a":"x\\\\"}', b'{"a":"x\\\\","b":["y\\\\","z"]}')
    yield from (b'{"a":"\\' + bytes([byte]) + b'"}' for byte in range(1, 256))
    yield from (b'{"a":"\\u' + b'00e9'[:digits] + tail for digits in range(5) for tail in (b'"}', b'x"}', b''))
    for window in (1, 2, 7, 63, 64, 65, 254, 255, 256, 8190, 8191, 8192, 8193, 65535, 65536, 65537):
        for shift in (-3, -2, -1, 0, 1):
            text = b's' * max(0, window + shift)
            yield from (b'{"a":"' + text + b'","b":1}', b'{"a":["' + text + b'","t"],"b":1}', b'{"a":' + b'7' * len(text) + b'}')
    items = [b'1', b'"s"', b'[1]', b'{"k":1}', b'null', b'[]', b'{}']
    yield from (b'{"a":[' + b','.join(mix) + b'],"b":1}' for mix in itertools.permutations(items, 3))
    for count in (32766, 32767, 32768, 32769, 65535, 65536, 65537):
        yield from (b'[' + b','.join([b'1'] * count) + b']', b'{' + b','.join([b'"a":1'] * count) + b'}')
    yield from (b'{"a":1,"a":2,"a":[3]}', b'{"":""}', b'{"a":1\r}', b'{"a":"x"\r,\r"b"\r:\r2\r}', b'{"a":1,}', b'[,]', b'{,}')
    for number in (b'-', b'+1', b'1.', b'.5', b'0x1F', b'1e', b'1e+', b'9' * 400, b'-0', b'NaN', b'Infinity', b'tru', b'nul'):
        yield from (b'{"a":' + number + b'}', b'{"a":[' + number + b',' + number + b']}')
    for invalid in (b'\x80', b'\xc3', b'\xed\xa0\x80', b'\xf4\x90\x80\x80', b'\xff\xfe', b'\x7f', b'\x1b[0m', b'\x0b', b'\x0c'):
        yield from (b'{"' + invalid + b'":"' + invalid + b'"}', b'{' + invalid + b'"a":1}')


def moves(documents=DOCUMENTS, windows=WINDOWS):
    for script, window, document in itertools.product(SCRIPTS, windows, documents):
        yield bytes([window, 5, len(script)]) + script + document


def tree(documents=DOCUMENTS, windows=WINDOWS):
    for window, document in itertools.product(windows, documents):
        yield bytes([window, 255 if window in (7, 64) else 32]) + document


def expr_input(path, document):
    return len(path).to_bytes(2, 'little') + path + document


def expr(documents=DOCUMENTS, paths=tuple(PATHS)):
    yield from (expr_input(path, document) for path, document in itertools.product(paths, documents))


def expr_limits():
    """Paths about as long as names, values, segments and texts may be."""
    deep = b'{"a":' * 260 + b'1' + b'}' * 260
    yield from (expr_input(b'$' + b'.a' * count, deep) for count in (62, 63, 64, 65, 254, 255, 256, 257, 260))
    yield from (expr_input(b'$' + b'.' * dots + b'ab', b'{"a":1,"ab":2}') for dots in (2044, 2045, 2046, 4092, 4093, 4094))
    for length in (254, 255, 256, 257):
        name, value = b'n' * length, b'v' * (length + 768)
        yield expr_input(b'$.' + name, b'{"' + name + b'":1}')
        yield expr_input(b'$[' + name + b'=1]', b'[{"' + name + b'":1,"b":[2,3]}]')
        yield expr_input(b'$[a=' + value + b'].b', b'[{"a":"' + value + b'","b":"x"}]')


def edit(documents=DOCUMENTS, operations=(0, 1, 2, 4), limits=(0, 20, 255)):
    for operation, limit, document in itertools.product(operations, limits, documents):
        yield bytes([operation, 1, limit, 1, 1]) + b'av' + document


def edit_limits():
    """Members that fill the editor's own buffer, or almost."""
    for length in (4080, 4081, 4082, 4083, 4084, 4085):
        yield bytes([0, 0, 255, 0, 0]) + b'{"a":"' + b'v' * length + b'"}'
        yield bytes([1, 1, 255, 1, 1]) + b'av{"":"' + b'v' * (length - 11) + b'"}'


def tags():
    yield from (b'Smoke\\u0054est', b'Smoke\0' + b'0054est', b'caf\\u00e9', b'\\u00g0', b'\\u', b'a\0b')


def tag_match():
    documents = DOCUMENTS + [b'{"scenario":{"TAGS":{"_G":[["Smoke\\u0054est","b"]]}}}',
                             b'{"scenario":{"TAGS":{"_G":[["t0"]]}},"u":"x\\\\"}"',
                             b'[{"scenario":{"TAGS":{"_G":[["t0"]]}}}]']
    for word in (b'smoke', b'T0', b't', b''):
        yield from (bytes([0, len(word)]) + word + b'\xff' + document for document in documents)
        yield from (bytes([0, len(word)]) + word + b'\0' + tag for tag in (
            b'"Smoke"', b'"a","S\\u006doke"', b'"sm\\noke"', b'"sm\\u00e9oke"', b'"sm\\u0000oke"', b'"sm\\', b'"' + b'x' * 100 + b'smOKE"', b'1,"t0"'))


def tokens():
    for token, text in itertools.product((b'/', b'|', b' ', b'ab', b''),
                                         (b'', b'a/b', b'//a//b/', b'"a"/b/c', b'"a/b', b'""', b'"', b'""x"/y',
                                          b'abab"ab', b"it's; $(x)", b'12',
                                          b'azAZ09_.@+-/')):
        yield from (bytes([most, len(token)]) + token + text for most in (0, 1, 2, 9))


def log_settings():
    yield from (b'LIB_DEBUG 2', b'LIB_DEBUG', b'LIB_DEBUG -1', b'LIB_DEBUG 65280 more', b'X' * 600 + b' 3',
                b'MASK memory MISC\n', b'MASK ALL ~ MEMORY', b'MASK ~', b'MASK 0x30 0x 12', b'MASK FOO', b'M \t 7',
                b'M ' + b'1 ' * 120, b'M 99999999999999999999 0xfffffffffffffffff', b'')


def escapes():
    yield from (b'plain', b'\\n\\r\\t\\"\\\\', b'\\/\\u0041', b'x\\', b'\\\\"', b'')


def pool():
    operations = [bytes([10] * 12), bytes([10, 10, 5, 21, 8, 2, 3, 1]), bytes([0, 10, 0, 10, 36, 10, 10, 10, 1])]
    for slot, first, cap, locks in itertools.product((0, 1, 7, 40), (1, 4), (2, 7), (0, 1)):
        yield from (bytes([slot, first, first, cap, locks]) + each for each in operations)


def norm_ids():
    def step(code, name, shape=0, argument=3):
        return bytes([code, len(name)]) + name + bytes([shape, argument])
    names = [b'a', b'b', b'cc', b'abc', b'']
    for buckets, room in itertools.product((0, 2, 15), (0, 200)):
        for code in range(8):
            yield bytes([buckets, room]) + b''.join(
                step(code, name, shape) + step(8, name) for name in names for shape in (0, 210, 235, 240, 255)) + \
                b''.join(step(last, name, 210 if argument == 1 else 0, argument) for last in (10, 4, 12, 13, 14, 15, 0, 0x4f)
                         for name in names for argument in (0, 1, 0xFE))
    yield bytes([2, 0]) + step(0xff, b'', 0xff) + step(8, b'77') + step(10, b'7') + step(1, b'a')


def alloc():
    blocks = bytes([11, 10, 12, 200, 8, 20, 26, 3, 41, 90, 6, 1, 11, 0, 7, 0, 230, 0, 11, 10, 6, 0, 6, 0, 9, 7])
    reports = bytes([3, 1, 4, 50, 3, 99, 3, 1, 4, 0, 5, 50, 5, 50, 65, 0, 3, 50, 65, 0])
    for traced, extra in itertools.product((0, 1), (0, 5)):
        yield bytes([traced, 2, extra]) + blocks + reports + b'\x01\0'
        yield bytes([traced, 2, extra, 0, 0]) + blocks + reports + b'\0\0' + reports + blocks + b'\x01\0\0\0' + reports


def work_dir():
    def text(letters):  # of the alphabet of fuzz_work_dir.cpp
        return bytes([100, len(letters)]) + bytes('/ab/cd-.'.index(letter) for letter in letters)
    texts = [b'\0', text(''), text('a'), text('a/b'), text('a//b/c'), text('/a'), text('a/'), text('///'), text('c/a/b/d'),
             text('.'), bytes([250, 3]), bytes([203, 4]), bytes([212, 5])]
    for (number, first), code in itertools.product(enumerate(texts), range(11)):
        second, third = texts[(5 * number + code) % 13], texts[(7 * number + 3 * code) % 13]
        yield bytes([7]) + texts[2] * 3 + b''.join(
            bytes([each]) + first + second + third + bytes([flags] * (each == 10))
            for each in (code, 10, code) for flags in range(8 if code == 10 else 1))


def log():
    for settings in (b'\x07\xff\x00\xff\x00\x01', b'\x01\x0f\x01\x7f\x01\x01', b'\x05\xff\x00\xff\x02\x00'):
        for kind in (0, 5, 7):
            yield settings + b''.join(bytes([kind, 1, 4, 9, name, 5, low, high, 65])
                                      for name, low, high in ((3, 20, 0), (3, 40, 200), (201, 20, 0), (200, 255, 201)))
            yield settings + bytes([kind, 1, 4, 9, 3, 5, 90, 0, 65]) * 9
        for kind, level in ((8, 0), (9, 0), (9, 4)):
            yield settings[:5] + b'\x03' + b''.join(
                bytes([0, 1, 4, line, 3, 5, 90, 0, 65, kind, level, 0, line, 0, 1, 0, 0, 0]) for line in range(20))


def command():
    arguments = [[0], [0, 1], [2, 3], [4, 5], [6, 7], [8, 9], [0, 10, 11], [0, 12, 13], [0, 14, 15], [0, 16, 17],
                 [0, 18], [2, 3, 16, 17, 1], []]
    for words, closed in itertools.product(arguments, (0, 0x1F, 0x2F)):
        entries = b''.join(bytes([kind, deep] + [column] * (7 + deep)) + b'\x03abc'
                           for kind in (3, 5, 1, 0x83) for deep, column in ((0, 0), (1, 0), (2, 0), (1, 1), (2, 2)))
        yield bytes([closed, len(words)] + words) + b'\0\0\0' + entries
        yield bytes([closed, len(words)] + words) + b'\0\xff\x14w2|p2|P|S\nx\0y|z\n|||' + b'\xff\x05 5 -1' + entries


def write(directory, inputs):
    os.makedirs(directory, exist_ok=True)
    for number, seed in enumerate(inputs):
        with open(os.path.join(directory, f'{number:05}'), 'wb') as out:
            out.write(seed)


def seeds():
    return {'json_moves': moves(), 'json_tree': tree(), 'json_expr': itertools.chain(expr(), expr_limits()), 'json_edit': itertools.chain(edit(), edit_limits()), 'tags': tags(), 'tag_match': tag_match(),
            'tokens': tokens(), 'log_settings': log_settings(), 'escapes': escapes(), 'pool': pool(),
            'norm_ids': norm_ids(), 'alloc': alloc(), 'work_dir': work_dir(), 'log': log(), 'command': command()}


def hostile_inputs():
    documents = list(hostile())
    return {'json_moves': moves(documents, (0, 7)), 'json_tree': tree(documents, (0, 64, 255)),
            'json_expr': expr(documents, PATHS[2:5]), 'json_edit': edit(documents, (1,), (255,))}


def main():
    is_hostile = sys.argv[1] == '--hostile'
    for name, inputs in (hostile_inputs() if is_hostile else seeds()).items():
        write(os.path.join(sys.argv[-1], name), inputs)


main()
