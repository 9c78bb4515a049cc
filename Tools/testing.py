"""For the *Test.py files beside the tools: finds the tools, and loads those that are programs."""

import importlib.machinery
import importlib.util
import os
import sys

TOOLS = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, TOOLS)


def program(name):
    """A program of this folder as a module; it does not run."""
    loader = importlib.machinery.SourceFileLoader(name, os.path.join(TOOLS, name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module
