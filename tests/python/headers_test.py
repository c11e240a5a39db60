# SPDX-License-Identifier: MIT
"""Other tools that read C can read the public headers: pycparser, and cffi, which declares them for Python.

Arguments after those of run.py: the folder of the headers and a C compiler, which preprocesses them.
"""
import ctypes
import os
import subprocess
import sys
import tempfile
import unittest

import kelo_utils
from kelo_utils import _abi

try:
    import pycparser
    import pycparser.c_ast
    import pycparser.c_generator
except ImportError:
    pycparser = None
try:
    import cffi
except ImportError:
    cffi = None

# What the headers take from those of the C library, whose own are full of extensions.
SYSTEM_HEADERS = ("errno.h", "pthread.h", "stddef.h", "stdint.h", "stdio.h", "stdlib.h", "string.h", "sys/types.h", "unistd.h")
SYSTEM_TYPES = """
#ifndef TYPES
#define TYPES
#define NULL ((void*)0)
typedef signed char int8_t; typedef unsigned char uint8_t; typedef short int16_t; typedef unsigned short uint16_t;
typedef int int32_t; typedef unsigned int uint32_t; typedef long long int64_t; typedef unsigned long long uint64_t;
typedef unsigned long size_t; typedef long intptr_t; typedef unsigned long uintptr_t; typedef unsigned int mode_t;
typedef struct { char opaque[40]; } pthread_mutex_t; typedef struct file FILE;
extern int errno; void* calloc(size_t count, size_t size);
#endif
"""
# cffi knows the types of fixed size itself.
TYPES_FOR_CFFI = "typedef unsigned int mode_t; typedef struct { char opaque[40]; } pthread_mutex_t;\n"


def preprocessed():
    include, compiler = sys.argv[3:5]
    with tempfile.TemporaryDirectory() as folder:
        for name in SYSTEM_HEADERS:
            path = os.path.join(folder, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="ascii") as file:
                file.write(SYSTEM_TYPES)
        command = [compiler, "-std=c99", "-E", "-nostdinc", "-I", folder, "-I", include, "-D__attribute__(x)=", "-x", "c",
                   os.path.join(include, "kelo_utils", "kelo_utils.h")]
        text = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode()
    return "\n".join(line for line in text.splitlines() if not line.startswith("#pragma"))


@unittest.skipUnless(pycparser, "this machine has no pycparser (python3-pycparser)")
class HeadersTest(unittest.TestCase):
    def setUp(self):
        tree = pycparser.CParser().parse(preprocessed())
        self.declarations = [node for node in tree.ext if "kelo_utils/" in node.coord.file]

    def test_pycparser_finds_every_function(self):
        found = {node.name for node in self.declarations
                 if isinstance(node, pycparser.c_ast.Decl) and isinstance(node.type, pycparser.c_ast.FuncDecl)}
        self.assertLessEqual(set(_abi.FUNCTIONS), found)

    @unittest.skipUnless(cffi, "this machine has no cffi (python3-cffi)")
    def test_cffi_declares_records_constants_and_functions(self):
        generator, ffi = pycparser.c_generator.CGenerator(), cffi.FFI()
        ffi.cdef(TYPES_FOR_CFFI + "".join(generator.visit(node) + ";\n" for node in self.declarations
                                          if not isinstance(node, pycparser.c_ast.FuncDef)))
        library = ffi.dlopen(_abi.LIBRARY)
        self.assertEqual(library.kelo_get_log_level(), kelo_utils.get_log_level())
        self.assertEqual(library.KELO_RUN_NOT_FOUND, kelo_utils.KELO_RUN_NOT_FOUND)
        for record in _abi.LAYOUTS:
            self.assertEqual(ffi.sizeof(record.__name__), ctypes.sizeof(record), record.__name__)
            for name, _ in record._fields_:
                self.assertEqual(ffi.offsetof(record.__name__, name), getattr(record, name).offset, name)
