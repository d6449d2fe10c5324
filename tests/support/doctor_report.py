"""A report of cardhost doctor --json, as tests look at it."""
import json


def findings_of(report):
    """{"verdict id": ["subject: found", ...]}"""
    found = {}
    for finding in json.loads(report)["findings"]:
        found.setdefault(f"{finding['verdict']} {finding['id']}", []).append(
            f"{finding['subject']}: {finding['found']}")
    return found


def assert_finds(test, found, expected, text):
    """That the finding is there, and says so."""
    test.assertIn(expected, found)
    test.assertTrue(any(text in entry for entry in found[expected]), found[expected])
