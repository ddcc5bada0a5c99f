"""Each subcommand has its manual page, with every option of its --help and no other; each register is in ee.ini(5);
the completion of bash finds subcommands, options, registers and stages.

    manual_test.py EETOOL MAN_DIR COMPLETION
"""
import pathlib
import re
import subprocess
import sys

eetool, pages = sys.argv[1], pathlib.Path(sys.argv[2])
faults = []


def said(*arguments):
    return subprocess.run([eetool, *arguments], check=True, capture_output=True, text=True).stdout


def compare(name, text):
    path = pages / f"{name}.1.scd"
    if not path.exists():
        faults.append(f"{name.replace('-', ' ')} has no manual page: write docs/man/{name}.1.scd")
        return
    page = path.read_text(encoding="ascii")
    told = set(re.findall(r"^ +(?:-\w,)?(--[\w-]+)", text, flags=re.M))
    listed = {option for line in re.findall(r"^\*-.*", page, flags=re.M) for option in re.findall(r"--[\w-]+", line)}
    where = f"docs/man/{path.name}" + (" (or frame-options.scd)" if "*--rgb*" in page else "")
    faults.extend(f"{option} of {name} --help is not in {where}" for option in sorted(told - listed))
    faults.extend(f"{option} in {where} is not in {name} --help" for option in sorted(listed - told))


help_text = said("--help")
compare("eetool", help_text)
subcommands = re.findall(r"^  (\w+) +\w", help_text.partition("Subcommands:")[2], flags=re.M)
for subcommand in subcommands:
    compare(f"eetool-{subcommand}", said(subcommand, "--help"))
pages_of = {re.sub(r"^eetool-|\.1\.scd$", "", page.name) for page in pages.glob("eetool-*.1.scd")}
faults.extend(f"docs/man/eetool-{page}.1.scd: there is no such subcommand" for page in pages_of - set(subcommands))

registers = [line.split("\t")[0] for line in said("list", "registers").splitlines()]
in_page = set(re.findall(r"reg_\w+", (pages / "ee.ini.5.scd").read_text(encoding="ascii").replace("\\", "")))
faults.extend(f"{register} is not in ee.ini(5)" for register in registers if register not in in_page)
if len(subcommands) < 7 or len(registers) != 193:
    faults.append(f"{len(subcommands)} subcommands, {len(registers)} registers")
for line, found in (("", "explain"), ("diff --js", "--json"), ("ini --set reg_ee_total_ga", "reg_ee_total_gain="),
                    ("run --y y.pgm --stage mf_d", "mf_delta"), ("run --pipeline cl", "classic")):
    script = f'source {sys.argv[3]}; COMP_LINE="eetool {line}" COMP_POINT={7 + len(line)}; _eetool {eetool}'
    script += '; echo "${COMPREPLY[@]}"'
    words = subprocess.run(["bash", "-c", script], capture_output=True, text=True).stdout.split()
    if found not in words:
        faults.append(f"eetool {line}<TAB> gives {words}, without {found}")
sys.exit("\n".join(faults) or None)
