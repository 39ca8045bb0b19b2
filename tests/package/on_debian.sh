#!/usr/bin/env bash
# What the trials share that run in the small Debian of try_in_debian, as root; read by each of them.
set -euo pipefail

die() {
    printf 'package: %s\n' "$*" >&2
    exit 1
}

say() { printf 'package: %s\n' "$*"; }

# expect STATUS COMMAND...: the command ends with this status; what it prints is kept in /tmp/output.
expect() {
    local wanted=$1 status=0
    shift
    "$@" </dev/null >/tmp/output 2>&1 || status=$?
    ((status == wanted)) || die "\"$*\" ended with status $status: $(</tmp/output)"
}

# servers NAME...: within 5 s, these servers run, and no others.
servers() {
    local tries running wanted
    wanted=$(printf '%s\n' "$@" | sort | xargs)
    for ((tries = 0; tries < 100; ++tries)); do
        running=$({ cat /proc/[0-9]*/comm 2>/dev/null || true; } | sed -n '/_Server$/p' | sort | xargs)
        [[ $running != "$wanted" ]] || return 0
        sleep 0.05
    done
    die "servers that run: $running; that should: $wanted"
}

all_servers() { servers IEC104_Server MQTT_Server Modbus_Server OPCUA_Server 网关_Server; }

# A third start program that never returns: it has its server in the foreground.
hang_mqtt() {
    printf '#!/bin/sh\nexec /mnt/mtd/code/services/MQTT_Server\n' >/factory_setting/MQTT_loadservice
}
