"""What the end-to-end tests and the demo know alike of the appliance that script/sandbox makes: its build, its database
and where its recordings lie. The sandbox has this directory in PYTHONPATH.
"""

import json
import os
import subprocess
from pathlib import Path

BUILD = Path(os.environ["MORVEX_BUILD"])
SOURCE = Path(__file__).resolve().parents[1]
RECORDINGS = Path("/recordings")


def quote(text):
    return "'" + text.replace("'", "''") + "'"


def sql(statement):
    """Runs statements that give no rows."""
    subprocess.run(["psql", "-Xq", "-v", "ON_ERROR_STOP=1", "-c", statement], check=True)


def rows(query):
    """The rows of a query, each a dict of column name (lower case) and value; integers as int, NULL as None."""
    wrapped = f"SELECT coalesce(json_agg(to_json(r)), '[]') FROM ({query}) r"
    return json.loads(subprocess.run(["psql", "-XAtq", "-c", wrapped], check=True, capture_output=True).stdout)


def store_settings(settings):
    """Rows of Configs: values by parameter, those by part."""
    for part, values in settings.items():
        for param, value in values.items():
            row = ", ".join(quote(text) for text in (param, value, part))
            delete = f"DELETE FROM Configs WHERE param = {quote(param)}"
            sql(f"{delete}; INSERT INTO Configs (param, value, part) VALUES ({row})")


def path_of(call):
    """The recording of a row of Calls or ActiveCalls."""
    return RECORDINGS / call["directory"] / call["filename"]
