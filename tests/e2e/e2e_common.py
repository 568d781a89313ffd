"""Shared by the end-to-end tests: the command line that CTest passes (paths of the built
executables and of the source tree) and the unittest entry point."""

import argparse
import subprocess
import sys
import unittest


class Paths:
    riffle = None
    riffle_case = None
    source = None
    build_type = None
    kill_shim = None


def run(cmd, **kw):
    """Runs a command with standard input closed, capturing its text output."""
    return subprocess.run(cmd, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=300, **kw)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--riffle", required=True)
    parser.add_argument("--riffle-case", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--build-type", default="Release")
    parser.add_argument("--kill-shim")
    args, rest = parser.parse_known_args()
    Paths.riffle, Paths.riffle_case, Paths.source = args.riffle, args.riffle_case, args.source
    Paths.build_type, Paths.kill_shim = args.build_type, args.kill_shim
    unittest.main(argv=[sys.argv[0]] + rest)
