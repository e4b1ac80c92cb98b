# SPDX-License-Identifier: MIT
# Sourced by scripts that need an X display: start_xvfb FIRST LAST starts a private Xvfb on the
# first free display number in FIRST..LAST, exports DISPLAY and sets xvfb_pid (kill it on exit).
# -noreset: by default the server resets when its last client leaves, and a client that connects
# during that moment finds no display.
xvfb_pid=""
start_xvfb() {
    for n in $(seq "$1" "$2"); do
        [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ] && continue
        Xvfb ":$n" -screen 0 1280x1024x24 -noreset -nolisten tcp >/dev/null 2>&1 &
        xvfb_pid=$!
        export DISPLAY=":$n"
        break
    done
    for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
}
