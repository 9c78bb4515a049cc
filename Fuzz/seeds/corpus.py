"""The seeds of fuzz targets, as a maker of some of them makes them."""

import os

FUZZ = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# What no maker makes: inputs that have found something, and what programs of before have written.
KEPT = ("found-", "old-")


class Corpus:
    """All seeds of some targets but those that are kept for ever."""

    def __init__(self, *targets):
        self._made = {target: {} for target in targets}

    def seed(self, target, name, content):
        if name in self._made[target]:
            raise ValueError(f"{target}/{name} is made twice")
        self._made[target][name] = content if isinstance(content, bytes) else content.encode("utf-8")

    def left(self):
        """Paths of files that have been seeds once."""
        for target, made in self._made.items():
            folder = os.path.join(FUZZ, "corpus", target)
            for name in sorted(os.listdir(folder)):
                if name not in made and not name.startswith(KEPT):
                    yield os.path.join(folder, name)

    def write(self):
        for target, made in self._made.items():
            folder = os.path.join(FUZZ, "corpus", target)
            os.makedirs(folder, exist_ok=True)
            for name, content in made.items():
                with open(os.path.join(folder, name), "wb") as file:
                    file.write(content)
        for path in self.left():
            os.remove(path)
