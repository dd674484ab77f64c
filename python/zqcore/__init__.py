"""The music library of iPods and iPhones, read with the ZQCore framework.

    import zqcore
    for device in zqcore.devices():
        print(device.name, device.serial, device.path)
    library = zqcore.open("/media/you/IPOD")       # a mount path, a serial number or a name
    for track in library.tracks:
        print(track.artist, track.title, track.duration)

Errors of the framework are raised as zqcore.Error (with .name, .reason and .kind: "not found",
"damaged", "device gone", "not answering", "refused", "cancelled", "destination failed" or
"other"); failed file
reads and copies as OSError.
"""

import os as _os
import time as _time

from ._zqcore import Device, Error, Library, Playlist, Track, __version__
from . import _zqcore

__all__ = ["Device", "Error", "Library", "Playlist", "Track", "devices", "open", "events", "watch",
           "__version__"]


def devices():
    """The devices connected now: disk-mode iPods mounted as removable volumes, and iPhones and
    iPod touches that usbmuxd reports (and that trust this computer)."""
    return list(_zqcore._connected_devices())


def open(device=None):
    """Loads a device's library. `device` is a Device, a mount path (the folder that holds
    iPod_Control), a serial number or a device name; without it, the one device connected."""
    if isinstance(device, Device):
        return device.open()
    if device is not None and _os.path.isdir(device):
        return _zqcore._open_path(_os.fspath(device))
    connected = devices()
    if device is None:
        if len(connected) != 1:
            raise _error("%d devices are connected; name one of them: %s"
                         % (len(connected), ", ".join(_label(d) for d in connected) or "none"))
        return connected[0].open()
    for candidate in connected:
        if device in (candidate.serial, candidate.name):
            return candidate.open()
    raise _error("no device is connected with the path, serial number or name '%s'" % device)


def events(timeout=None):
    """Yields ("arrived", Device) and ("departed", Device) as devices come and go, running the
    framework's main loop meanwhile; ends after `timeout` seconds (never without one)."""
    deadline = None if timeout is None else _time.monotonic() + timeout
    known = {_key(d): d for d in devices()}
    while True:
        remaining = 0.25 if deadline is None else min(0.25, deadline - _time.monotonic())
        if remaining <= 0:
            return
        if not _zqcore._wait_for_change(remaining):
            continue
        now = {_key(d): d for d in devices()}
        for key in known.keys() - now.keys():
            yield "departed", known[key]
        for key in now.keys() - known.keys():
            yield "arrived", now[key]
        known = now


def watch(callback, timeout=None):
    """Calls callback(event, device) for each arrival and departure (see events())."""
    for event, device in events(timeout):
        callback(event, device)


def _error(reason):
    error = Error(reason)
    error.name, error.reason, error.kind = "zqcore.DeviceSelection", reason, "not found"
    return error


def _key(device):
    return (device.is_mobile, device.serial, device.path, device.name)


def _label(device):
    return "%s (%s)" % (device.name, device.serial or device.path)
