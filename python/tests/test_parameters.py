"""The parameter sets from Python give the records of the C++ tables, as `orvane params` prints them."""

import subprocess

import orvane

SETS = [name for name in orvane.__all__ if name.startswith("s_") and name.endswith("ParametersSet")]
# Regions for the zoom sets besides the whole frame: small ones, off the origin.
REGIONS = {"HazelW.*.m1": "300,500,600,700", "Hazel.*.m1": "0,0,1420,1560", "Aspen.*.m9": "10,20,100,150"}


def printed_records(command, key, *options):
    """The records that `orvane params` prints for a key: {call: {field: text}}, or None for a key it
    does not know. A call reads as Python, e.g. s_DMFlagZoomParametersSet.get("Hazel.*.m1", ROI(0, 0, 1500, 1800))."""
    done = subprocess.run([command, "params", key, *options], capture_output=True, text=True)
    if done.returncode != 0:
        assert "unknown model" in done.stderr, done.stderr
        return None
    records = {}
    for block in done.stdout.strip().split("\n\n"):
        call, *lines = block.splitlines()
        records[call] = dict(line.strip().split(" = ", 1) for line in lines)
    return records


def text(value):
    """A field's value as the command prints it (floats in the shortest of six digits)."""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, float):
        return f"{value:g}"
    if isinstance(value, orvane.ROI):
        return f"top {value.top}, left {value.left}, height {value.height}, width {value.width}"
    if isinstance(value, list):
        return "[" + "; ".join(text(item) for item in value) + "]"
    return str(value)


def test_lookup_and_get_give_the_tables_of_the_library(orvane_command):
    command = orvane_command.path
    keys = sorted({key for name in SETS for key in getattr(orvane, name).GetBaseRows()} - {""})
    runs = [(key.replace("*", "A7"),) for key in keys]  # through the nearest-key search
    runs += [(key, "--roi", region) for key, region in REGIONS.items()]
    compared, unknown = set(), []
    for run in runs:
        records = printed_records(command, *run)
        if records is None:
            unknown.append(run[0])
            continue
        for call, fields in records.items():
            record = eval(call, vars(orvane))
            assert {name: text(getattr(record, name)) for name in fields} == fields, call
            compared.add(call.split(".")[0])
    assert compared == set(SETS)  # every set, each row the command knows (not the zoom-only modes)
    assert len(unknown) < len(keys) / 4, unknown


def test_records_are_copies_with_their_fields_and_the_search_of_the_library():
    row = orvane.s_DMFlagParametersSet.lookup("Hazel.A1.m3")
    assert row == orvane.s_DMFlagParametersSet.lookup("Hazel.*.m3") != orvane.DMFlagParameters()
    row.Area.top += 1  # a record's region is changed in place; the table's row is not
    assert row.Area.top == orvane.s_DMFlagParametersSet.lookup("Hazel.A1.m3").Area.top + 1

    assert orvane.s_defectMapParametersSet.HasOwnRow("Hazel.A1.m1")
    assert not orvane.s_defectMapParametersSet.HasOwnRow("Hazel.A1.m99")
    assert orvane.s_defectMapParametersSet.lookup("Hazel.A1.m99") == orvane.s_defectMapParametersSet.lookup("")

    for name in SETS:  # a repr reads back as the same record, formulas and float fields included
        for row in getattr(orvane, name).GetBaseRows().values():
            assert eval(repr(row), vars(orvane)) == row
