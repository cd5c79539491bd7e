"""What a program's own help says of its commands and options, for programs that make something of it."""
import re
import subprocess
import sys


class Help:
    """What the tool says of a command."""

    def __init__(self, tool, words, what):
        run = subprocess.run([*tool, *words, "--help"], capture_output=True, text=True, check=False,
                             stdin=subprocess.DEVNULL)
        if run.returncode != 0 and not words:
            sys.exit(f"{tool[-1]} does not run: {run.stderr}")
        # A command may be a program of its own, which not every build has.
        said = run.stdout.splitlines() if run.returncode == 0 else []
        self.words = words
        self.what = said[0].rstrip(".") if said else what
        self.usage = next((each[len("Usage: "):] for each in said if each.startswith("Usage: ")),
                          " ".join(["qimctl", *words, "[OPTION...]"]))
        self.sections = {}
        current = None
        for each in said:
            if re.match(r"[A-Z]\w*:$", each):
                current = self.sections.setdefault(each[:-1], [])
            elif each.startswith("  --") and current is None:  # a process has options only, and no heading
                current = self.sections.setdefault("Options", [each.strip().split("  ", 1)])
                current[-1][1:] = [current[-1][-1].strip()]
            elif not each.startswith(" "):
                current = None if each else current
            elif current is not None and re.match(r"  \S", each):
                term, _, rest = each.strip().partition("  ")
                current.append([term, rest.strip()])
            elif current is not None:
                current[-1][1] = (current[-1][1] + " " + each.strip()).strip()

    def name(self):
        return "-".join(["qimctl", *self.words])

    def commands(self):
        return [entry for entry in self.sections.get("Commands", []) if entry[0] != "help"]
