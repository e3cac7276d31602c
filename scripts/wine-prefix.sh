#!/usr/bin/env bash
# Makes the Wine prefix that the Windows tests run in (build/windows/wine),
# once, and starts Wine's background processes for the tests that follow.
# Run it with DISPLAY set (inside xvfb-run): Wine's processes keep the display
# they were started with, and FOX windows need one.
set -euo pipefail
cd "$(dirname "$0")/.."
export WINEARCH=win64 WINEDEBUG=-all WINEPREFIX=$PWD/build/windows/wine
wine=/usr/lib/wine/wine64
mkdir -p "$WINEPREFIX"
# Started before the tests, with all output away: otherwise the background
# processes hold each test's output pipe and ctest waits for them.
/usr/lib/wine/wineserver -p > /dev/null 2>&1 || true  # one may run already
"$wine" wineboot --init > /dev/null 2>&1
# Xvfb has no window manager (windows would wait for one), and a crash must
# not open Wine's debugger dialog.
"$wine" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f > /dev/null 2>&1
"$wine" reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f > /dev/null 2>&1
