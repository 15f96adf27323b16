#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Print the tree of a JSON file, a node a line: json_tree.py FILE"""
import ctypes
import sys


class Node(ctypes.Structure):
    pass


# The record of <libvxcore/vxlb_json_parser.h>: packed, so that it may lie at any address.
Node._pack_ = 1
Node._fields_ = [
    ("name", ctypes.c_char * 256), ("type", ctypes.c_int16), ("parent", ctypes.POINTER(Node)),
    ("num_child", ctypes.c_int16), ("children", ctypes.POINTER(Node)),
    ("next_sib", ctypes.POINTER(Node)), ("value", ctypes.c_void_p), ("value_len", ctypes.c_int32),
    ("block", ctypes.c_void_p), ("future1", ctypes.c_int32)]


class Message(ctypes.Structure):
    _fields_ = [("str", ctypes.c_char * 1025)]


lib = ctypes.CDLL("libvxcore.so.1")
lib.vxlb_json_init.restype = ctypes.c_void_p
lib.vxlb_json_init.argtypes = [ctypes.c_char_p, ctypes.c_int16, ctypes.c_int,
                               ctypes.POINTER(Message)]
lib.vxlb_json_to_jsont.restype = ctypes.POINTER(Node)
lib.vxlb_json_to_jsont.argtypes = lib.vxlb_json_free.argtypes = [ctypes.c_void_p]
lib.vxlb_jsont_free.argtypes = [ctypes.POINTER(Node)]


def text(data):
    return data.decode(errors="replace")


def show(node, depth=0):
    while node:
        n = node.contents
        value = f" = {text(ctypes.string_at(n.value, n.value_len))}" if n.value else ""
        kind = ["object", "array", "string", "literal"][n.type]
        print(f"{'  ' * depth}{text(n.name)}: {kind}{value}")
        show(n.children, depth + 1)
        node = n.next_sib


why = Message()
handle = lib.vxlb_json_init(sys.argv[1].encode(), 0, 0, why)
if not handle:
    sys.exit(f"{sys.argv[1]}: {text(why.str)}")
tree = lib.vxlb_json_to_jsont(handle)
lib.vxlb_json_free(handle)
if not tree:
    sys.exit(f"{sys.argv[1]}: not JSON")
show(tree)
lib.vxlb_jsont_free(tree)
