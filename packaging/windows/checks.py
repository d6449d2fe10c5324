"""How the checks in this folder tell what they found: a line each, and the exit code at the end."""


class Checks:
    def __init__(self, subject):
        self.subject = subject
        self.failed = self.passed = 0

    def check(self, name, passed, detail=""):
        if passed:
            self.passed += 1
            print(f"ok - {self.subject}: {name}", flush=True)
        else:
            self.failed += 1
            print(f"not ok - {self.subject}: {name}" + (f": {detail}" if detail != "" else ""), flush=True)

    def equal(self, name, found, expected):
        self.check(name, found == expected, f"{found!r} instead of {expected!r}")

    def exit_code(self):
        return 1 if self.failed or not self.passed else 0
