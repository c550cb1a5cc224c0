#!/bin/sh
# Starts Quorbin with a private directory for the received files. An administrator who wants them
# elsewhere sets TMP; its protection is theirs then. What would let everybody in or fail every sender
# ends the start: status 78 for the settings, which only an administrator mends, 1 for the rest.
set -eu

settings=@CMAKE_INSTALL_FULL_SYSCONFDIR@/quorbin/quorbin.ini
program=@CMAKE_INSTALL_PREFIX@/lib/quorbin/Quorbin
check=@CMAKE_INSTALL_FULL_BINDIR@/quorbin-check

fail() {
  echo "quorbin: $2" >&2
  exit "$1"
}

case "${1-}" in
  --help)
    cat <<HELP
Usage: quorbin [--quit]
Receives files from permitted hosts and opens them.

  --quit     end the one that runs, as by closing its window; status 1 if none does
  --help     print this
  --version  print the version

Settings:        $settings
Received files:  TMP, or else a private directory in the user's cache
Manual:          man quorbin
HELP
    exit
    ;;
  --version)
    echo "quorbin @PROJECT_VERSION@"
    exit
    ;;
  --quit)
    # The number of the process that holds the lock. It may be that of another program by now.
    lock=${XDG_RUNTIME_DIR:+$XDG_RUNTIME_DIR/Quorbin}
    lock=${lock:-/tmp/Quorbin-$(id -u)}/instance.lock
    if [ -O "$lock" ] && read -r process <"$lock" 2>/dev/null; then
      case $(readlink "/proc/$process/exe") in
        "$program" | "$program (deleted)")
          kill "$process" 2>/dev/null || fail 1 "can't end process $process"
          while kill -0 "$process" 2>/dev/null; do sleep 0.1; done
          exit
          ;;
      esac
    fi
    fail 1 "none is running"
    ;;
esac
[ $# -eq 0 ] || fail 2 "takes no arguments but --quit, --help and --version: $1"

# The program has defaults for settings that it can't read, and they let everybody in.
if [ ! -f "$settings" ] || [ ! -r "$settings" ]; then
  fail 78 "not started: $settings is missing or can't be read"
fi

if [ -z "${TMP:-}" ]; then
  case "${XDG_CACHE_HOME:-}" in
    /*) TMP=$XDG_CACHE_HOME/quorbin ;;
    *) TMP=${HOME:?is not set, so there is no place for received files}/.cache/quorbin ;;
  esac
  # chmod fails on a directory of another user, and with it the start.
  (umask 077 && mkdir -p -- "$TMP" && chmod 700 -- "$TMP")
  export TMP
else
  [ -e "$TMP" ] || fail 1 "not started: the directory of TMP, $TMP, is missing"
  [ -d "$TMP" ] || fail 1 "not started: TMP, $TMP, is no directory"
  [ "$(stat -L -c %u -- "$TMP")" -eq "$(id -u)" ] ||
    fail 1 "not started: the directory of TMP, $TMP, belongs to another user"
  if [ ! -w "$TMP" ] || [ ! -x "$TMP" ]; then
    fail 1 "not started: the directory of TMP, $TMP, is not writable"
  fi
fi

# Its warnings are for the terminal or the journal and keep nothing from starting.
if [ -x "$check" ]; then
  status=0
  "$check" --quiet >&2 || status=$?
  # Another status says nothing of the settings: a signal, or a library during an upgrade.
  [ "$status" -ne 2 ] || fail 78 "not started: quorbin-check can't read the settings"
fi
exec "$program"
