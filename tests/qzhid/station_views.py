"""Views of a station, as show_station reads them."""

FREE = {"state": "empty"}
SCAN = {"state": "label", "from": "1.02"}
WRITING = {"state": "working", "activity": "writing", "percent": 42, "left": 12, "from": "1.02",
           "label": "SN-0047-13"}
CHECKING = {"state": "working", "activity": "checking the hub", "from": "1.02"}
AGAIN = {**WRITING, "percent": 0, "retries": 2, "left": 75}
PASSED = {"state": "passed", "outcome": "updated", "from": "1.02", "runs": "2.10",
          "label": "SN-0047-11"}
RECOVERED = {**PASSED, "from": "loader", "retries": 1}
CURRENT = {**PASSED, "outcome": "current", "from": "2.10"}
LOST = {"state": "failed", "outcome": "lost", "from": "1.02", "label": "SN-0047-12",
        "reason": "the update failed, and the hub has left the bus",
        "next": "unplug it, plug it in again"}
REFUSED = {"state": "failed", "outcome": "refused", "from": "1.02",
           "reason": "the image is for vendor 2E7C, and the hub is of vendor 1A2B",
           "next": "put the unit aside"}
EVIL = {**LOST, "name": "<script>bad()</script>", "label": "\x1b[31m\"&'\n</section>\u202egnp",
        "reason": "<img src=x onerror=bad()>", "next": "</style><script>bad()</script>&amp;"}
WIDE = {**PASSED, "name": "左のベイ", "label": "ラベル番号0123456789番のとても長い名前のついた装置であること"}
LONG = {**LOST, "name": "the left rack, upper row, " * 3 + "bay 11", "label": "4711-" * 30,
        "reason": "a reason without an end, " * 20, "next": "do " + "very" * 60}
NO_SPACE = "the record /srv/units.jsonl cannot be written: no space left on the device; free some space"


def view(*bays, **more):
    """A view with those bays, which are named by their numbers unless they have names."""
    named = [{"name": f"bay {i}", "port_id": f"1-3.{i}", **bay} for i, bay in enumerate(bays, 1)]
    return {"image": "dock.bin", "version": "2.10", "passed": 47, "failed": 3, "rate": 61.3,
            "bays": named, **more}


def many(count, **more):
    """A view with that many bays in all states."""
    kinds = [PASSED, WRITING, LOST, FREE, SCAN, CHECKING, REFUSED, RECOVERED]
    return view(*(kinds[i % len(kinds)] for i in range(count)), **more)
