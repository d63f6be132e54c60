# SPDX-License-Identifier: Apache-2.0
"""What the documents show works as it stands."""

import pathlib
import re

import pytest

from conftest import run_python

ROOT = pathlib.Path(__file__).parents[2]


@pytest.mark.parametrize("document", ["README.md", "docs/python.md"])
def test_shown_code_runs(recorded, tmp_path, document):
    shown = re.findall(r"^```python\n(.*?)^```", (ROOT / document).read_text(), re.DOTALL | re.MULTILINE)
    code = "\n".join(block for block in shown if "live(" not in block)
    assert "orva.open(" in code
    path = recorded("TS4B", 4)
    (tmp_path / "street.pcap").symlink_to(path)
    (tmp_path / "calibration").symlink_to(path.with_suffix(".calib"))
    done = run_python(code, cwd=tmp_path)
    assert done.returncode == 0 and not done.stderr, done.stderr
    assert len(done.stdout.splitlines()) > 4
