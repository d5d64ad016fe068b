"""The campaigns use what the end-to-end tests know of the daemon."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))
pytest.register_assert_rewrite("harness", "trunk")
