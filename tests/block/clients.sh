# Real clients on a sound device. One function a case; its name is its claim.

in_and_out()
{
    random_file "$SCRATCH/in" 40
    start_device size=40M "$@"
    nbdcopy --flush "$SCRATCH/in" "$URI" || die "nbdcopy in"
    nbdcopy "$URI" "$SCRATCH/out" || die "nbdcopy out"
    same "$SCRATCH/in" "$SCRATCH/out"
    stop_device
    start_device "$@"
    nbdcopy "$URI" "$SCRATCH/again" || die "nbdcopy out after a new start"
    same "$SCRATCH/in" "$SCRATCH/again"
    stop_device
}

quick nbdcopy_gets_back_what_it_put_in
nbdcopy_gets_back_what_it_put_in()
{
    config 512
    in_and_out mode=writeback
}

quick nbdcopy_gets_back_what_it_put_in_through_the_cache
nbdcopy_gets_back_what_it_put_in_through_the_cache()
{
    config 512
    in_and_out mode=writethrough barrier=true
}

quick parts_of_sectors_and_pages_are_written_and_read
parts_of_sectors_and_pages_are_written_and_read()
{
    start_device size=4M
    io "write -P 0x11 0 1M" "write -P 0x22 513 1000" "read -P 0x11 0 513" "read -P 0x22 513 1000" \
        "read -P 0x11 1513 20000" "write -P 0x33 8191 2" "read -P 0x33 8191 2" \
        "read -P 0x11 8193 8191" "write -P 0x44 2097152 512" "read -P 0x44 2097152 512" \
        "read -P 0 2097664 512" "read -P 0 2098176 7168" "flush" "write -f -P 0x55 524287 100000" \
        "read -P 0x11 520000 4287" "read -P 0x55 524287 100000" "read -P 0x11 624287 1000"
    stop_device
    # What was cached in part is whole in the file: everything once more, from there.
    start_device
    io "read -P 0x11 0 513" "read -P 0x22 513 1000" "read -P 0x33 8191 2" "read -P 0x11 8193 8191" \
        "read -P 0x44 2097152 512" "read -P 0 2097664 10000" "read -P 0x55 524287 100000"
    stop_device
    fact '^integrity *0 sectors damaged'
}

quick zeros_and_trims_are_holes_and_read_as_zeros
zeros_and_trims_are_holes_and_read_as_zeros()
{
    local before after

    start_device size=64M
    io "write -P 0x77 0 32M" "flush"
    before=$(stat -c %b "$DISK")
    io "discard 8M 16M" "read -P 0x77 0 8M" "read -P 0 8M 16M" "read -P 0x77 24M 8M" \
        "write -z -u 1000 50000" "read -P 0x77 0 1000" "read -P 0 1000 50000" \
        "read -P 0x77 51000 50000" "write -z 1M 1M" "read -P 0 1M 1M" "flush"
    after=$(stat -c %b "$DISK")
    [ "$after" -lt $((before - 28000)) ] || die "16 MiB trimmed, blocks went from $before to $after"
    nbdinfo --map --totals "$URI" >"$SCRATCH/map"
    grep -qE '^ *50[0-9]{6} .*hole,zero' "$SCRATCH/map" || die "$(cat "$SCRATCH/map")"
    stop_device
    fact '^integrity *0 sectors damaged'
}

quick zeros_that_must_keep_their_room_are_no_holes
zeros_that_must_keep_their_room_are_no_holes()
{
    start_device size=8M
    io "write -z 0 1M" "flush" "read -P 0 0 8M"
    nbdinfo --map "$URI" >"$SCRATCH/map"
    grep -qE '^ +0 +1048576 +0 +data' "$SCRATCH/map" || die "$(cat "$SCRATCH/map")"
    stop_device
    # All of its pages stay in the cache to the end.
    fact '^pages *128 of 1024 in use at the peak$'
}

quick zeros_take_no_page
zeros_take_no_page()
{
    # A pool of 64 pages, a device of 8192: 64 MiB of zeros fit through it without one page.
    config 64
    start_device size=64M
    head -c 64M /dev/zero >"$SCRATCH/zeros"
    nbdcopy --allocated --flush "$SCRATCH/zeros" "$URI" || true
    io "write -P 0 0 64M" "read -P 0 0 64M"
    stop_device
    fact '^queue *0 requests for pages'
}

quick a_qcow2_image_lives_inside
a_qcow2_image_lives_inside()
{
    local inside="json:{\"driver\":\"qcow2\",\"file\":{\"driver\":\"nbd\",\"server\":
        {\"type\":\"unix\",\"path\":\"$SOCKET\"}}}"

    config 512
    random_file "$SCRATCH/raw" 32
    start_device size=48M
    qemu-img create -q -f qcow2 "$URI" 32M || die "create"
    qemu-img convert -q -n -f raw -O qcow2 "$SCRATCH/raw" "$URI" || die "convert"
    qemu-img compare -q -f raw -F qcow2 "$SCRATCH/raw" "$URI" || die "compare"
    qemu-img check -q -f qcow2 "$URI" || die "check"
    qemu-img map --output=json "$inside" >"$SCRATCH/map" || die "map"
    grep -q '"zero": true' "$SCRATCH/map" || die "the map knows no zeros: $(cat "$SCRATCH/map")"
    stop_device
}

quick a_file_system_lives_inside
a_file_system_lives_inside()
{
    config 256
    mkdir "$SCRATCH/files"
    cp -r "$ROOT/include" "$ROOT/docs" "$SCRATCH/files"
    head -c 5000000 /dev/urandom >"$SCRATCH/files/noise"
    truncate -s 64M "$SCRATCH/image"
    mke2fs -q -t ext4 -d "$SCRATCH/files" "$SCRATCH/image" || die "mke2fs"
    start_device size=64M
    nbdcopy --flush "$SCRATCH/image" "$URI" || die "nbdcopy in"
    nbdcopy "$URI" "$SCRATCH/exported" || die "nbdcopy out"
    stop_device
    e2fsck -fn "$SCRATCH/exported" >"$SCRATCH/fsck" 2>&1 || die "$(cat "$SCRATCH/fsck")"
    mkdir "$SCRATCH/dump"
    debugfs -R "rdump /include /docs /noise $SCRATCH/dump" "$SCRATCH/exported" 2>/dev/null
    diff -r "$SCRATCH/files" "$SCRATCH/dump" || die "the files differ"
}

quick four_connections_on_a_small_pool_find_what_they_wrote
four_connections_on_a_small_pool_find_what_they_wrote()
{
    # 4 x 8 MiB are 4096 pages; a twentieth of them is the pool.
    config 204
    start_device size=32M
    fio_run --name=mixed --rw=randrw --bsrange=512-1m --size=8m --offset_increment=8m --numjobs=4 \
        --iodepth=16 --verify=crc32c --verify_fatal=1 --randseed=7
    stop_device
    fact '^eviction *[1-9]'
    fact ' 0 timed out, 0 refused$'
}

quick four_connections_on_a_whole_cache_find_what_they_wrote
four_connections_on_a_whole_cache_find_what_they_wrote()
{
    # Everything stays cached, so pages are written where they are, while they are written back.
    config 8192
    start_device size=16M
    for seed in 1 2 3; do
        fio_run --name=mixed --rw=randrw --bsrange=512-128k --size=4m --offset_increment=4m \
            --numjobs=4 --iodepth=16 --verify=crc32c --verify_fatal=1 --randseed="$seed"
    done
    stop_device
    fact ' 0 timed out, 0 refused$'
}

quick a_page_is_never_seen_half_old_and_half_new
a_page_is_never_seen_half_old_and_half_new()
{
    config 512
    start_device size=1M
    timeout 300 /usr/bin/python3 "$HERE/page_client.py" "$SOCKET" 1500 ||
        die "the client ended with $?"
    stop_device
}

quick writes_and_trims_of_a_client_that_keeps_account_are_all_there
writes_and_trims_of_a_client_that_keeps_account_are_all_there()
{
    config 64
    start_device size=8M
    for seed in 1 2 3; do
        /usr/bin/python3 "$HERE/crash_client.py" write "$SOCKET" "$SCRATCH/state" 0 "$seed" &&
            /usr/bin/python3 "$HERE/crash_client.py" check "$SOCKET" "$SCRATCH/state" ||
            die "seed $seed"
        io "discard 0 8M"
    done
    stop_device
}

# used_pages: what the console says is out of the page pool.
used_pages()
{
    "$BUILD/bin/cmmctl" -s "$SCRATCH/console" --json umm show pools >"$SCRATCH/pools" || return 1
    /usr/bin/python3 -c 'import json, sys
print(next(pool["used"] for pool in json.load(sys.stdin)["pools"]
           if pool["object_bytes"] == 8376))' <"$SCRATCH/pools"
}

quick the_console_tells_of_the_pools_while_the_device_serves
the_console_tells_of_the_pools_while_the_device_serves()
{
    local client used before

    config 512
    start_device size=16M console="$SCRATCH/console"
    wait_for 120 test -S "$SCRATCH/console" || die "no socket"
    before=$(used_pages) || die "no answer: $(cat "$SCRATCH/pools")"
    io "write -P 0x21 0 2M" "flush"
    used=$(used_pages)
    [ "$used" -eq $((before + 256)) ] || die "2 MiB took the pages from $before to $used"
    fio --ioengine=nbd --uri="$URI" --name=load --rw=randrw --bsrange=512-256k --size=16m \
        --iodepth=8 --time_based --runtime=3 >"$SCRATCH/fio.log" 2>&1 &
    client=$!
    while kill -0 "$client" 2>/dev/null; do
        "$BUILD/bin/cmmctl" -s "$SCRATCH/console" umm show pools >"$SCRATCH/pools" ||
            die "no answer under load: $(cat "$SCRATCH/pools")"
        grep -q 'PAGE PARTITION' "$SCRATCH/pools" || die "no pages: $(cat "$SCRATCH/pools")"
    done
    wait "$client" || die "the client failed: $(cat "$SCRATCH/fio.log")"
    stop_device
    [ ! -e "$SCRATCH/console" ] || die "the console's socket outlives the device"
}

quick a_flush_covers_every_connection
a_flush_covers_every_connection()
{
    # One client writes, another one flushes; then the server is killed.
    start_device size=8M
    io "write -P 0x5a 1M 2M"
    io "flush"
    kill_device
    start_device
    io "read -P 0x5a 1M 2M"
    stop_device
}

long fio_mixes_reads_writes_and_trims_for_a_minute
fio_mixes_reads_writes_and_trims_for_a_minute()
{
    local seconds=${BLOCK_SECONDS:-60}

    # 4 x 64 MiB are 32768 pages; a twentieth of them is the pool. fio cannot verify what it also
    # trims, so the trims go on beside it, in a place and on connections of their own.
    config 1638
    start_device size=320M
    fio_run --bsrange=512-1m --iodepth=16 --time_based --runtime="$seconds" \
        --name=mixed --rw=randrw --size=64m --offset_increment=64m --numjobs=4 \
        --verify=crc32c --verify_fatal=1 --verify_backlog=256 \
        --name=trims --rw=randtrimwrite --offset=256m --size=64m --numjobs=2
    stop_device
    fact '^eviction *[1-9]'
    fact ' 0 timed out, 0 refused$'
    start_device
    nbdcopy "$URI" null: || die "a sector is damaged after all that"
    stop_device
    fact '^integrity *0 sectors damaged'
}
