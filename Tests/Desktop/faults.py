#!/usr/bin/python3
"""Runs the fault suite: faults.py [NAME...] [--list]; see fault_suite.py."""

import sys

from fault_suite import main

if __name__ == "__main__":
    sys.exit(main())
