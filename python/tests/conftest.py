"""Shared fixtures: the built package, the xmldsig tool beside it, the shared corpus, and
running the tool the way the tests compare against."""
from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path
from typing import List, Optional, Sequence

import pytest

import xmldsig

REPO = Path(__file__).resolve().parents[2]


def _tool() -> Path:
    env = os.environ.get("XMLDSIG_CLI")
    if env:
        return Path(env)
    # <build>/python/xmldsig/__init__.py -> <build>/xmldsig
    return Path(xmldsig.__file__).resolve().parents[2] / "xmldsig"


@pytest.fixture(scope="session")
def tool() -> Path:
    path = _tool()
    if not os.access(path, os.X_OK):
        pytest.fail(f"the xmldsig tool is not at {path} (build it, or set XMLDSIG_CLI)")
    return path


@pytest.fixture(scope="session")
def corpus() -> Path:
    shared = os.environ.get("XMLDSIG_SHARED") or str(REPO.parent / "shared")
    path = Path(shared) / "corpus"
    if not path.is_dir():
        pytest.skip("shared corpus not found beside the checkout (../shared/corpus); "
                    "set XMLDSIG_SHARED to its location to run this test")
    return path


class ToolRun:
    def __init__(self, proc: subprocess.CompletedProcess) -> None:
        self.status = proc.returncode
        self.out: bytes = proc.stdout
        self.err: str = proc.stderr.decode("utf-8", "replace")

    def lines(self) -> List[str]:
        return self.out.decode("utf-8").splitlines()

    def objects(self) -> list:
        return [json.loads(line) for line in self.lines()]


def run_tool(tool: Path, args: Sequence[str], stdin: Optional[bytes] = None) -> ToolRun:
    proc = subprocess.run([str(tool), *args], input=stdin if stdin is not None else b"",
                          capture_output=True, timeout=120)
    return ToolRun(proc)


def json_line(obj: object) -> str:
    """A dict written as the tool writes a JSON line: no spaces, UTF-8 text unescaped."""
    return json.dumps(obj, ensure_ascii=False, separators=(",", ":"))
