# shellcheck shell=bash
# Shared by start, stop and fixture: the processes of one store, found by their configuration file.

# daemon_pids STORE [PROGRAM]: every process, or that program, that runs with STORE's configuration.
daemon_pids() {
  local cmdline
  # The name comes by standard input, or grep would find itself; names in /proc hold no blanks.
  # shellcheck disable=SC2013,SC2062
  for cmdline in $(grep -lsxzF -f - /proc/[0-9]*/cmdline <<<"$1/ceph.conf"); do
    if [ $# -eq 1 ] || grep -qsxzF -- "$2" "$cmdline"; then
      cmdline=${cmdline#/proc/}
      echo "${cmdline%/cmdline}"
    fi
  done
}

# end_daemons STORE [PROGRAM]: asks them to end, makes them end after ten seconds, returns when
# they are gone; fails when they do not go.
end_daemons() {
  local signal=TERM start=$SECONDS pids
  while pids=$(daemon_pids "$@") && [ -n "$pids" ]; do
    if ((SECONDS >= start + 10)); then signal=KILL; fi
    ((SECONDS < start + 30)) || return 1
    # A stopped process takes no notice of TERM before it goes on. Either may find them gone.
    # shellcheck disable=SC2086
    { kill -s "$signal" $pids && kill -s CONT $pids; } 2>/dev/null || true
    sleep 0.1
  done
}

# end_store STORE: the gateway first and the monitor last, since each takes its leave of the next.
end_store() {
  end_daemons "$1" radosgw && end_daemons "$1" ceph-osd && end_daemons "$1"
}
