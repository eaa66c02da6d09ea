# Private Wine environment of one build tree: an Xvfb display and a Wine prefix under <root>.
# Sourced by wine-run and the scripts; never touches the user's own ~/.wine or display.
#
#   kestrun_wine_up <root>    starts (or reuses) the display and the prefix, exports the variables
#   kestrun_wine_down <root>  stops the Wine server and the display

kestrun_wine_exports() {
  local root=$1
  export WINEPREFIX=$root/prefix
  export WINEARCH=win64
  export WINEDEBUG=${KESTRUN_WINEDEBUG:--all}
  # No Mono/Gecko installers: the programs here need neither.
  export WINEDLLOVERRIDES="mscoree,mshtml=;${KESTRUN_WINEDLLOVERRIDES:-}"
  if [[ -f $root/display ]]; then
    export DISPLAY=:$(cat "$root/display")
  fi
}

kestrun_display_alive() {
  local root=$1
  [[ -f $root/display && -f $root/xvfb.pid ]] || return 1
  kill -0 "$(cat "$root/xvfb.pid")" 2>/dev/null
}

kestrun_wine_up() {
  mkdir -p "$1"
  local root
  root=$(cd "$1" && pwd)
  exec 9>"$root/lock"
  flock 9
  if ! kestrun_display_alive "$root"; then
    rm -f "$root/display" "$root/xvfb.pid"
    # -displayfd picks a free display number and writes it to the given descriptor.
    local fifo=$root/displayfd
    rm -f "$fifo"
    mkfifo "$fifo"
    # Children must not inherit the lock (descriptor 9), or they would hold it for their lifetime.
    setsid Xvfb -displayfd 8 -screen 0 ${KESTRUN_SCREEN:-1920x1080x24} -nolisten tcp \
      8>"$fifo" 9>&- </dev/null >/dev/null 2>&1 &
    echo $! >"$root/xvfb.pid"
    local n
    read -r n <"$fifo"
    rm -f "$fifo"
    echo "$n" >"$root/display"
    # A grey desktop, so that black windows stand out in screenshots.
    DISPLAY=:$n xsetroot -solid '#3a3f4b' 9>&- >/dev/null 2>&1 || true
  fi
  kestrun_wine_exports "$root"
  mkdir -p "$WINEPREFIX"
  if [[ ! -f $WINEPREFIX/system.reg ]]; then
    setsid wineserver -p 9>&- </dev/null >/dev/null 2>&1 || true
    wineboot -i 9>&- </dev/null >"$root/wineboot.log" 2>&1 || true
    # Wine draws window frames itself (no window manager runs on the private display), so title
    # bars show in screenshots and closing a window does not wait for a manager that never comes.
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f 9>&- </dev/null \
      >>"$root/wineboot.log" 2>&1 || true
  fi
  # A persistent server keeps later starts fast; it must not hold a caller's output pipes open.
  setsid wineserver -p 9>&- </dev/null >/dev/null 2>&1 || true
  # Start Wine's own services now, detached from the caller: started by the first program they
  # would inherit its output pipes and keep a test runner waiting for their end.
  wineboot 9>&- </dev/null >/dev/null 2>&1 || true
  flock -u 9
  exec 9>&-
}

kestrun_wine_down() {
  local root=$1
  [[ -d $root ]] || return 0
  WINEPREFIX=$root/prefix wineserver -k >/dev/null 2>&1 || true
  if [[ -f $root/xvfb.pid ]]; then
    kill "$(cat "$root/xvfb.pid")" 2>/dev/null || true
  fi
  rm -f "$root/display" "$root/xvfb.pid"
}
