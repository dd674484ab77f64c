# What examples/zq-list prints for a device, worked out from `zqpod library --json`.
import json
import sys

report = json.load(sys.stdin)
tracks = {t["trackID"]: t for t in report["tracks"]}
print("%s (serial %s): %d tracks" % (report["name"], report["serialNumber"] or "none", len(report["tracks"])))
for playlist in report["playlists"]:
    print(playlist["name"] or "")
    for track_id in playlist["trackIDs"]:
        print("  %s - %s" % (tracks[track_id]["artist"] or "", tracks[track_id]["title"] or ""))
