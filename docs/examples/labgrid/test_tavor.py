# SPDX-License-Identifier: MIT
"""Runs tavor on a labgrid target and judges what it printed.

    pytest --lg-env target.yaml test_tavor.py

The target needs a shell, over a console or SSH, and timeout(1). Its environment file names the
programs and what is to be run: see local.yaml beside this file. Reports go to TAVOR_REPORTS.
"""

import os
import pathlib
import shlex
import subprocess

REPORTS = pathlib.Path(os.environ.get("TAVOR_REPORTS", "reports"))


def run_on(target, option, names):
    """What tavor printed. When it crashed or hung the text ends with the case in which it did."""
    shell = target.get_driver("CommandProtocol")
    limit = int(option("tavor-limit", "180"))
    library = "LD_LIBRARY_PATH=" + option("tavor-library", "")
    command = shlex.join(["env", library, "timeout", str(limit), option("tavor"), *names])
    # By way of a file: what else comes over the console does not disturb it.
    log = shlex.quote(option("tavor-log", "/tmp/tavor.log"))
    shell.run(f"{command} >{log} 2>&1", timeout=limit + 30)
    return "\n".join(shell.run_check(f"cat {log}", timeout=120)) + "\n"


def test_tavor(target, env):
    option = env.config.get_option
    names = option("tavor-names", "").split()
    REPORTS.mkdir(exist_ok=True)
    log = REPORTS / f"{target.name}.log"
    log.write_text(run_on(target, option, names))
    reports = [f"--out=junit:{log.with_suffix('.xml')}", f"--out=jsonl:{log.with_suffix('.jsonl')}"]
    judged = subprocess.run(
        [option("tavor-run", "tavor-run"), "report", "--quiet", *reports, log, *names],
        capture_output=True, text=True, check=False)
    assert judged.returncode == 0, judged.stdout + judged.stderr
