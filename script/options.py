"""The command lines of the scripts in Python, which answer as those in bash do by script/options.bash."""

import argparse


class Options(argparse.ArgumentParser):
    """--help prints the head of the script and no more; what is wrong costs one line and status 2."""

    def __init__(self, head):
        super().__init__(allow_abbrev=False)
        self.head = head

    def format_help(self):
        return self.head

    def error(self, message):
        self.exit(2, f"{self.prog}: {message} (see --help)\n")
