# Faults: damage in the file, failures from below, clients and servers that go away.

# One damaged bit in `$1` (byte of the sector): sector 100 fails, its neighbours do not.
damaged_bit()
{
    start_device size=8M
    io "write -P 0x66 0 1M" "flush"
    stop_device
    flip_bit "$DISK" "$(place_of 100 "$1")"
    start_device
    io_fails "read 51200 512"
    io_fails "read 0 1M"
    io "read -P 0x66 50688 512" "read -P 0x66 51712 512" "read -P 0x66 0 51200"
    grep -q "sector 100 is damaged at byte $(place_of 100 0) of .*: wrong $2" \
        "$SCRATCH/nbdkit.log" || die "no line says where: $(cat "$SCRATCH/nbdkit.log")"
    # Writing the sector heals it, the damage beside it goes on being none.
    io "write -P 0x67 51200 512" "flush" "read -P 0x67 51200 512" "read -P 0x66 50688 512"
    stop_device
    start_device
    io "read -P 0x67 51200 512" "read -P 0x66 0 51200" "read -P 0x66 51712 65536"
    stop_device
    fact '^integrity *0 sectors damaged for good, 0 mended'
}

quick a_flipped_bit_of_data_fails_its_sector_alone
a_flipped_bit_of_data_fails_its_sector_alone()
{
    damaged_bit 17 guard
}

quick a_flipped_bit_of_a_guard_fails_its_sector_alone
a_flipped_bit_of_a_guard_fails_its_sector_alone()
{
    damaged_bit 513 guard
}

quick a_flipped_bit_of_a_reference_tag_fails_its_sector_alone
a_flipped_bit_of_a_reference_tag_fails_its_sector_alone()
{
    damaged_bit 519 "reference tag"
}

quick a_write_beside_a_damaged_sector_leaves_it_damaged
a_write_beside_a_damaged_sector_leaves_it_damaged()
{
    start_device size=8M
    io "write -P 0x66 0 1M" "flush"
    stop_device
    flip_bit "$DISK" "$(place_of 100 0)"
    start_device
    io "write -P 0x68 52224 1024" "flush" "read -P 0x68 52224 1024"
    io_fails "read 51200 512"
    io_fails "write -P 1 51300 10"
    stop_device
    start_device
    io_fails "read 51200 512"
    io "read -P 0x68 52224 1024"
    stop_device
}

quick a_page_zeroed_in_part_is_damage_and_no_hole
a_page_zeroed_in_part_is_damage_and_no_hole()
{
    start_device size=8M
    io "write -P 0x66 0 1M" "flush"
    stop_device
    dd if=/dev/zero of="$DISK" bs=1 seek="$(place_of 32 0)" count=4096 conv=notrunc status=none
    start_device
    io_fails "read 16384 512"
    io "read -P 0x66 0 16384" "read -P 0x66 24576 8192"
    stop_device
}

quick a_replica_mends_a_damaged_sector
a_replica_mends_a_damaged_sector()
{
    random_file "$SCRATCH/in" 8
    start_device size=8M replica="$SCRATCH/copy.img"
    nbdcopy --flush "$SCRATCH/in" "$URI" || die "nbdcopy in"
    stop_device
    fact '^replicas *1, 0 left behind, 1 made anew, [1-9]'
    flip_bit "$DISK" "$(place_of 200 100)"
    flip_bit "$DISK" "$(place_of 201 515)"
    flip_bit "$SCRATCH/copy.img" "$(place_of 201 515)"
    flip_bit "$SCRATCH/copy.img" "$(place_of 203 0)"
    start_device replica="$SCRATCH/copy.img"
    io_fails "read $((201 * 512)) 512"
    io "read $((200 * 512)) 512" "read $((203 * 512)) 512"
    stop_device
    fact ', 1 mended from a replica$'
    # The first copy is whole again where the replica was, without it.
    start_device
    io "read $((200 * 512)) 512"
    io_fails "read $((201 * 512)) 512"
    stop_device
}

quick a_replica_serves_when_the_first_copy_is_lost
a_replica_serves_when_the_first_copy_is_lost()
{
    random_file "$SCRATCH/in" 8
    start_device size=8M replica="$SCRATCH/copy.img"
    nbdcopy --flush "$SCRATCH/in" "$URI" || die "nbdcopy in"
    stop_device
    mv "$SCRATCH/copy.img" "$DISK"
    start_device replica="$SCRATCH/new-copy.img"
    nbdcopy "$URI" "$SCRATCH/out" || die "nbdcopy out"
    same "$SCRATCH/in" "$SCRATCH/out"
    stop_device
    fact '^replicas *1, 0 left behind, 1 made anew'
}

quick a_replica_that_was_away_is_made_anew
a_replica_that_was_away_is_made_anew()
{
    start_device size=8M replica="$SCRATCH/copy.img"
    io "write -P 0x51 0 1M" "flush"
    stop_device
    start_device
    io "write -P 0x52 0 1M" "flush"
    stop_device
    start_device replica="$SCRATCH/copy.img"
    stop_device
    fact '^replicas *1, 0 left behind, 1 made anew'
    cmp -i "$DATA_OFFSET" "$DISK" "$SCRATCH/copy.img" || die "the copies differ"
    # The other way round nothing is made anew: the older one is not served.
    start_device
    stop_device
    refused 'knows more than' "$SCRATCH/copy.img" replica="$DISK" config="$CONFIG"
}

preload_faults()
{
    PRELOAD="${PRELOAD:+$PRELOAD:}$BUILD/lib/libfaulty_io.so"
    export FAULTY_IO=$SCRATCH/fault
    : >"$FAULTY_IO"
}

quick who_finds_no_pages_in_time_is_told_and_later_served
who_finds_no_pages_in_time_is_told_and_later_served()
{
    preload_faults
    config 16
    start_device size=8M
    io "write -P 0x21 0 8M" "flush"
    stop_device
    start_device timeout=1
    timeout 300 /usr/bin/python3 "$HERE/dry_pool_client.py" "$SOCKET" "$FAULTY_IO" ||
        die "the client ended with $?"
    stop_device
    fact '^requests .* 5 of them with a failure$'
    fact ' 5 timed out, 0 refused$'
}

quick short_reads_and_writes_are_gone_on_with
short_reads_and_writes_are_gone_on_with()
{
    preload_faults
    echo short >"$FAULTY_IO"
    random_file "$SCRATCH/in" 4
    start_device size=4M
    nbdcopy --flush "$SCRATCH/in" "$URI" || die "nbdcopy in"
    stop_device
    start_device
    nbdcopy "$URI" "$SCRATCH/out" || die "nbdcopy out"
    same "$SCRATCH/in" "$SCRATCH/out"
    stop_device
}

quick a_read_that_fails_below_fails_and_the_next_one_does_not
a_read_that_fails_below_fails_and_the_next_one_does_not()
{
    preload_faults
    start_device size=4M
    io "write -P 0x21 0 1M" "flush"
    stop_device
    start_device
    echo "read EIO" >"$FAULTY_IO"
    io_fails "read 0 512"
    : >"$FAULTY_IO"
    io "read -P 0x21 0 1M"
    stop_device
}

quick a_flush_that_fails_loses_nothing
a_flush_that_fails_loses_nothing()
{
    preload_faults
    start_device size=4M
    # qemu-io flushes when it ends, too: the fault is there before it begins.
    for fault in EIO ENOSPC; do
        echo "write $fault" >"$FAULTY_IO"
        io_fails_with 'Input/output|No space' "write -P 0x31 0 1M" flush
        io "read -P 0x31 0 1M"
        : >"$FAULTY_IO"
        io "flush" "write -P 0x32 1M 4096" "flush"
    done
    kill_device
    start_device
    io "read -P 0x31 0 1M" "read -P 0x32 1M 4096"
    stop_device
}

# torn WHAT REPAIRED: a rewrite is torn; each sector is old or new afterwards, and readable.
torn()
{
    preload_faults
    start_device size=8M "${@:3}"
    io "write -P 0x61 0 4M" "flush"
    echo "tear $1" >"$FAULTY_IO"
    qemu-io -f raw -c "write -P 0x62 1M 1M" -c "write -P 0x62 5M 1M" -c flush "$URI" \
        >/dev/null 2>&1
    wait_for 120 device_has_ended || die "the device lives"
    wait "$DEVICE"
    : >"$FAULTY_IO"
    start_device "${@:3}"
    nbdcopy "$URI" "$SCRATCH/out" || die "a sector cannot be read"
    stop_device
    fact "^journal *$2 pages repaired"
    fact '^integrity *0 sectors damaged'
    python3 - "$SCRATCH/out" <<'PY' || die "a sector is neither old nor new"
import sys
data = open(sys.argv[1], "rb").read()
for at in range(0, len(data), 512):
    old = 0x61 if at < 4 << 20 else 0
    new = 0x62 if at >> 20 in (1, 5) else old
    if data[at:at + 512] not in (bytes([old]) * 512, bytes([new]) * 512):
        sys.exit(f"sector {at // 512}: {data[at:at + 16].hex()}")
PY
}

quick a_page_torn_by_the_end_of_the_process_is_new
a_page_torn_by_the_end_of_the_process_is_new()
{
    torn pages '[1-9][0-9]*'
}

quick a_page_torn_in_the_first_copy_is_alike_in_the_replica
a_page_torn_in_the_first_copy_is_alike_in_the_replica()
{
    torn pages '[1-9][0-9]*' replica="$SCRATCH/copy.img"
    cmp -i "$DATA_OFFSET" "$DISK" "$SCRATCH/copy.img" || die "the copies differ"
}

quick an_intent_torn_by_the_end_of_the_process_changes_nothing
an_intent_torn_by_the_end_of_the_process_changes_nothing()
{
    torn journal 0
}

quick a_full_disk_is_told_and_what_was_flushed_stays
a_full_disk_is_told_and_what_was_flushed_stays()
{
    local disk=$SCRATCH/small

    mkdir "$disk"
    # A file system of 16 MiB for a device of 32; without the right to mount one the case is not
    # run.
    mount -t tmpfs -o size=16m none "$disk" 2>/dev/null || { echo "skipped: no mount"; return 0; }
    trap 'kill -KILL $(jobs -p) 2>/dev/null; umount -l "$SCRATCH/small"' EXIT
    DISK=$disk/disk.img
    config 512
    start_device size=32M
    io "write -P 0x41 0 4M" "flush"
    io_fails_with 'No space left' "write -P 0x42 4M 28M" flush
    io "read -P 0x41 0 4M"
    # Room comes back by a trim, and then everything can be written.
    io "discard 4M 28M" "flush" "write -P 0x43 4M 4M" "flush"
    stop_device
    start_device
    io "read -P 0x41 0 4M" "read -P 0x43 4M 4M"
    stop_device
}

# nbdkit 1.32 may end itself when a connection breaks while several of its threads answer on it. To
# the device that is an end like a kill: what was flushed is there at the next start.
start_again_after_the_servers_own_assertion()
{
    device_has_ended || return 0
    grep -q 'raw_send_socket: Assertion' "$SCRATCH/nbdkit.log" || die "the device ended"
    wait "$DEVICE"
    start_device
    io "read -P 7 64M 4096"
}

quick a_client_that_vanishes_leaves_nothing_behind
a_client_that_vanishes_leaves_nothing_behind()
{
    local client

    config 204
    start_device size=65M
    io "write -P 7 64M 4096" "flush"
    for _ in 1 2 3; do
        fio --ioengine=nbd --uri="$URI" --name=gone --rw=randrw --bsrange=512-1m --size=64m \
            --iodepth=32 --time_based --runtime=60 >/dev/null 2>&1 &
        client=$!
        wait_for_writes
        kill -KILL "$client"
        wait "$client" 2>/dev/null
        # Its last requests may still be on their way, so this goes where none of them did.
        (io "read -P 7 64M 4096" "write -P 7 64M 8192" "flush") || device_has_ended ||
            die "the device does not serve another client"
        start_again_after_the_servers_own_assertion
    done
    stop_device
}

disk_was_written()
{
    [ "$(stat -c %.9Y "$DISK")" != "$WRITTEN" ]
}

# Until the device writes its file: some clients' data has got there, and more is on its way.
wait_for_writes()
{
    WRITTEN=$(stat -c %.9Y "$DISK")
    wait_for 60 disk_was_written || die "the client does not write"
}

quick a_server_that_is_told_to_end_under_load_ends_clean
a_server_that_is_told_to_end_under_load_ends_clean()
{
    local client

    config 204
    start_device size=64M
    fio --ioengine=nbd --uri="$URI" --name=load --rw=randrw --bsrange=512-1m --size=16m \
        --offset_increment=16m --numjobs=4 --iodepth=16 --time_based --runtime=60 >/dev/null 2>&1 &
    client=$!
    wait_for_writes
    stop_device
    wait "$client" 2>/dev/null
    start_device
    nbdcopy "$URI" null: || die "a sector is damaged"
    stop_device
}

# kill_and_look TIMES PARAMETER...
kill_and_look()
{
    local times=$1 round
    shift

    config 204
    for ((round = 1; round <= times; ++round)); do
        rm -f "$DISK" "$SCRATCH/copy.img"
        start_device size=8M "$@"
        /usr/bin/python3 "$HERE/crash_client.py" write "$SOCKET" "$SCRATCH/state" "$DEVICE" \
            "$round" || die "round $round: the client failed"
        wait "$DEVICE" 2>/dev/null
        start_device "$@"
        /usr/bin/python3 "$HERE/crash_client.py" check "$SOCKET" "$SCRATCH/state" ||
            die "round $round: something flushed is lost, or torn"
        stop_device
        fact '^integrity *0 sectors damaged for good, 0 mended'
        echo "round $round: $(grep '^journal' "$REPORT")"
    done
}

quick three_kills_lose_nothing_flushed
three_kills_lose_nothing_flushed()
{
    kill_and_look 3
}

long fifty_kills_lose_nothing_flushed
fifty_kills_lose_nothing_flushed()
{
    kill_and_look "${BLOCK_KILLS:-50}"
}

long fifty_kills_with_a_replica_leave_copies_alike
fifty_kills_with_a_replica_leave_copies_alike()
{
    kill_and_look "${BLOCK_KILLS:-50}" replica="$SCRATCH/copy.img" mode=writethrough
    cmp -i "$DATA_OFFSET" "$DISK" "$SCRATCH/copy.img" || die "the copies differ"
}

long fio_finds_what_it_flushed_before_each_kill
fio_finds_what_it_flushed_before_each_kill()
{
    local round client

    config 204
    start_device size=64M
    for ((round = 1; round <= ${BLOCK_KILLS:-50}; ++round)); do
        fio_run --name=flushed --rw=randwrite --bsrange=512-256k --size=4m --iodepth=8 \
            --verify=crc32c --do_verify=0 --end_fsync=1 --randseed="$round"
        fio --ioengine=nbd --uri="$URI" --name=other --rw=randwrite --bsrange=512-1m \
            --offset=32m --size=32m --iodepth=16 --time_based --runtime=60 >/dev/null 2>&1 &
        client=$!
        wait_for_writes
        kill_device
        wait "$client" 2>/dev/null
        start_device
        fio_run --name=flushed --rw=randwrite --bsrange=512-256k --size=4m --iodepth=8 \
            --verify=crc32c --verify_only=1 --verify_fatal=1 --randseed="$round"
    done
    nbdcopy "$URI" null: || die "a sector is damaged"
    stop_device
    fact '^integrity *0 sectors damaged'
}

# refused TEXT PARAMETER...: the device does not start, and says why.
refused()
{
    local text=$1
    shift
    rm -f "$SCRATCH/other-socket"
    timeout 60 env ${PRELOAD:+LD_PRELOAD="$PRELOAD"} \
        ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0" nbdkit -f -U "$SCRATCH/other-socket" \
        "$PLUGIN" "$@" >"$SCRATCH/refusal" 2>&1 && die "served: $*"
    grep -q -- "$text" "$SCRATCH/refusal" || die "$*: $(cat "$SCRATCH/refusal")"
}

quick what_does_not_fit_is_refused_with_the_reason
what_does_not_fit_is_refused_with_the_reason()
{
    config 8
    refused 'file= is missing'
    refused 'size= makes a new one' "$SCRATCH/none.img"
    refused 'not a multiple of 512' "$DISK" size=1000
    refused 'neither writeback nor writethrough' "$DISK" mode=fast
    refused 'no such parameter' "$DISK" colour=blue
    refused 'a replica needs a file of its own' "$DISK" size=1M replica="$DISK"
    refused 'no folder with a configuration' "$DISK" size=1M config="$SCRATCH/none"
    # With a sanitizer's runtime preloaded the C library's lock for texts is unlocked once too often
    # when the console names the errno, and exit() waits for it for ever.
    [ -n "$PRELOAD" ] ||
        refused 'cannot be used as the console' "$DISK" size=1M console="$SCRATCH/none/socket"
    refused 'page pool of 8 is too small' "$DISK" size=1M config="$CONFIG"
    refused 'the device has 1048576 bytes' "$DISK" size=2M
    head -c 100000 /dev/urandom >"$SCRATCH/noise"
    refused 'not a device of this kind' "$SCRATCH/noise"
    rm -rf "$CONFIG"
    start_device
    refused 'another process serves this file' "$DISK"
    stop_device
}
