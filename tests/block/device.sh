# What the cases share: a scratch folder, the device as nbdkit serves it, and its report.
# Sourced by run; BUILD is the build's folder, SCRATCH an empty folder of the case's own.

PLUGIN=$BUILD/lib/nbdkit-cmm-plugin.so
SOCKET=$SCRATCH/socket
URI="nbd+unix:///?socket=$SOCKET"
DISK=$SCRATCH/disk.img
REPORT=$SCRATCH/report
CONFIG=$SCRATCH/etc
DEVICE=0 # process id

# The file's layout, in literal numbers: where pages begin, and their size.
DATA_OFFSET=4300800
PAGE=8320

die()
{
    echo "FAILED: $*" >&2
    exit 1
}

# config PAGES: a configuration with so many pages, for any machine.
config()
{
    mkdir -p "$CONFIG"
    cat >"$CONFIG/node_config.xml" <<XML
<node_config>
 <memcfg>
  <mem>1</mem>
 </memcfg>
 <config>
  <node memory="1">
   <umm>
    <uprocess name="default">
     <rdma_flag flag="0"/>
     <req_num num="1024"/>
     <sgl_num num="2048"/>
     <page_num num="$1"/>
     <pool_threadcache cache_size="0"/>
     <pool_cachenum page="0" page_maxcachethreadnum="0" 64K_inner="0" 64K_outer="0"/>
     <mem_coredump dump_level="0"/>
    </uprocess>
   </umm>
  </node>
 </config>
</node_config>
XML
}

# wait_for SECONDS COMMAND...: looks until the command succeeds.
wait_for()
{
    local looks=$(($1 * 50))
    shift
    until "$@"; do
        looks=$((looks - 1))
        [ "$looks" -gt 0 ] || return 1
        sleep 0.02
    done
}

device_has_ended()
{
    ! kill -0 "$DEVICE" 2>/dev/null
}

device_is_up_or_gone()
{
    [ -s "$SCRATCH/pid" ] || device_has_ended
}

# start_device PARAMETER...: serves $DISK; with PRELOAD set, under those libraries. nbdkit forgets
# memory of its own at its end, so leaks are what the device's audit says, not the sanitizer.
start_device()
{
    [ -d "$CONFIG" ] || config 1024
    rm -f "$SCRATCH/pid" "$SOCKET" "$REPORT"
    env ${PRELOAD:+LD_PRELOAD="$PRELOAD"} ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0" \
        nbdkit -f -U "$SOCKET" -P "$SCRATCH/pid" \
        ${FILTERS:-} "$PLUGIN" "$DISK" config="$CONFIG" report="$REPORT" "$@" \
        >>"$SCRATCH/nbdkit.log" 2>&1 &
    DEVICE=$!
    wait_for 120 device_is_up_or_gone || die "the device does not come up"
    [ -s "$SCRATCH/pid" ] || die "the device did not start: $(tail -n 3 "$SCRATCH/nbdkit.log")"
}

fact()
{
    grep -E "$1" "$REPORT" >/dev/null || die "the report lacks: $1
$(cat "$REPORT")"
}

# stop_device: as an operator does; everything must be back and every request answered.
stop_device()
{
    local taken answered status=0

    kill -TERM "$DEVICE"
    wait_for 120 device_has_ended || die "the device does not end"
    wait "$DEVICE" || status=$?
    [ "$status" -eq 0 ] || die "the device ended with $status"
    [ -s "$REPORT" ] || die "no report: $(tail -n 20 "$SCRATCH/nbdkit.log")"
    read -r taken answered < <(sed -n 's/^requests *\([0-9]*\) taken, \([0-9]*\) ans.*/\1 \2/p' \
                               "$REPORT")
    [ "$taken" = "$answered" ] || die "$taken requests taken, $answered answered"
    fact '^leak audit *clean$'
    fact '^stop *clean$'
    [ -n "${LOST:-}" ] || fact '^last flush *clean$'
}

kill_device()
{
    kill -KILL "$DEVICE"
    wait "$DEVICE" 2>/dev/null
    true
}

# random_file PATH MIB: bytes without a pattern, with a stretch of zeros in the middle.
random_file()
{
    head -c "$(($2 * 1048576))" /dev/urandom >"$1"
    dd if=/dev/zero of="$1" bs=1M seek=$(($2 / 2)) count=$(($2 / 8)) conv=notrunc status=none
}

same()
{
    cmp "$1" "$2" || die "$1 and $2 differ"
}

# io COMMAND...: commands of qemu-io, all of which must succeed.
io()
{
    local arguments=() one out

    for one in "$@"; do
        arguments+=(-c "$one")
    done
    out=$(qemu-io -f raw "${arguments[@]}" "nbd+unix:///?socket=$SOCKET" 2>&1) ||
        die "qemu-io $*: $out"
    ! grep -qE 'failed|error|[Pp]attern verification' <<<"$out" || die "qemu-io $*: $out"
}

# io_fails_with TEXT COMMAND...: commands of which one must end with that error.
io_fails_with()
{
    local text=$1 arguments=() one out
    shift

    for one in "$@"; do
        arguments+=(-c "$one")
    done
    out=$(qemu-io -f raw "${arguments[@]}" "nbd+unix:///?socket=$SOCKET" 2>&1)
    grep -qE "$text" <<<"$out" || die "qemu-io $* did not fail: $out"
}

io_fails()
{
    io_fails_with 'Input/output error' "$1"
}

# flip_bit FILE OFFSET
flip_bit()
{
    python3 - "$1" "$2" <<'PY'
import sys
with open(sys.argv[1], "r+b") as file:
    file.seek(int(sys.argv[2]))
    byte = file.read(1)[0]
    file.seek(int(sys.argv[2]))
    file.write(bytes([byte ^ 0x10]))
PY
}

# place_of SECTOR BYTE: where byte 0 to 519 of a sector lies in the file.
place_of()
{
    echo $((DATA_OFFSET + $1 / 16 * PAGE + $1 % 16 * 520 + $2))
}

fio_run()
{
    fio --ioengine=nbd --uri="$URI" --group_reporting --thread "$@" >"$SCRATCH/fio.log" 2>&1 ||
        die "fio $*: $(tail -n 30 "$SCRATCH/fio.log")"
}
