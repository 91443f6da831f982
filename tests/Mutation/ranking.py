"""Guesses which tests notice a mutant: those whose source has the words of the mutated statement, rare words above all."""

import collections
import re

SUITE = re.compile(r"^\w*TEST\w*\((\w+)", re.MULTILINE)
TEST = re.compile(r"^[A-Z]\w*\((?:\w+,\s*)*?(\w+)\)\s*$", re.MULTILINE)


def wordsOf(text):
    """Names, and the words that they are made of."""
    names = set(re.findall(r"[A-Za-z]\w{3,}", text))
    return names | {word.lower() for name in names for word in re.findall(r"[A-Z]?[a-z]{3,}", name)}


class Ranking:
    def __init__(self, root):
        self.bySuite = collections.defaultdict(set)  # words of the files that have tests of the suite
        self.byTest = collections.defaultdict(set)   # words of the bodies of the tests of that name
        self.stems = collections.defaultdict(set)    # names of those files
        files = [*(root / "src").rglob("*Test.cpp"), *(root / "tests/Integration").glob("*Test.cpp")]
        for file in files:
            text = file.read_text()
            words = wordsOf(text)
            stem = file.name[:-len("Test.cpp")]
            for suite in {*SUITE.findall(text), stem}:
                self.bySuite[suite] |= words
                self.stems[suite].add(stem)
            starts = [*TEST.finditer(text)]
            for match, after in zip(starts, [*starts[1:], None]):
                self.byTest[match[1]] |= wordsOf(text[match.end():after.start() if after else len(text)])
        self.files = count(self.bySuite)
        self.tests = count(self.byTest)

    def score(self, mutant, test):
        """\\return higher for tests that are more likely to notice the mutant."""
        stem = mutant.path.split("/")[-1].split(".")[0]
        words = wordsOf(f"{mutant.text} {stem}")
        parts = [part for part in re.split(r"[./]", test) if part not in ("Unit", "Both")]
        suite = next((part for part in parts if part in self.bySuite), "")
        body = next((self.byTest[part] for part in reversed(parts) if part in self.byTest), set())
        return sum(1 / self.files[w] for w in words & self.bySuite[suite]) + \
            sum(2 / self.tests[w] for w in words & body) + 3 * (stem in self.stems[suite])


def count(groups):
    counts = collections.Counter()
    for words in groups.values():
        counts.update(words)
    return counts
