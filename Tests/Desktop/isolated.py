"""Runs a program in namespaces of its own: isolated.py PROGRAM [ARGUMENT...]"""

import os
import sys

from isolation import isolate

isolate()
os.execvp(sys.argv[1], sys.argv[1:])
