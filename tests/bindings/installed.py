"""installed.py IMAGE: what an installed package does, on virtual hubs."""
import sys

import qzhidapi

hub = {"name": "hub", "port": "3.1"}
loss = {"on": "request", "request": "40/C8", "nth": 9, "action": "power_loss", "return_ms": 0}
closed = {"on": "call", "service": "OpenHidDevice", "device": "hub", "count": 0, "action": "fail", "code": 13}
steps = []
with qzhidapi.virtual({"devices": [hub]}), qzhidapi.Hub() as opened:
    result = opened.update(sys.argv[1], steps.append)
    print(f"updated {result.before} to {result.runs}, progress {steps[0]} to {steps[-1]}")
with qzhidapi.virtual({"devices": [{**hub, "image": {"cut_after": 4096}}]}), qzhidapi.Hub() as opened:
    result = opened.recover(sys.argv[1])
    print(f"recovered {result.before} to {result.runs}")
with qzhidapi.virtual({"devices": [hub], "faults": [loss]}), qzhidapi.Hub() as opened:
    result = opened.update(sys.argv[1])
    print(f"interrupted, then {result.outcome} with {result.retries} retry")
with qzhidapi.virtual({"devices": [hub], "faults": [closed]}):
    try:
        qzhidapi.Hub().open()
    except qzhidapi.PermissionDenied as error:
        print(f"PermissionDenied for hub {error.hub}: {error.what}")
