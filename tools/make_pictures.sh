#!/usr/bin/env bash
# tools/make_pictures.sh [BUILD]
#
# Makes the pictures of cmmctl in docs/ from real terminal sessions: a cmm_node that protects files
# and is short of pages, `cmmctl top` beside it on a terminal of 80 columns, and `cmmctl explain`
# for the sample configuration. BUILD is the folder of a build, build/release without one.
#
# The terminal is tmux; what it shows is drawn by tools/render_terminal.py. Nothing is touched up.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

BUILD=${1:-build/release}
BIN=$(realpath -- "$BUILD")/bin
CONFIG=apps/cmm_node/etc/config/node_config.xml
SAMPLE_MIB=1024
TRIES=600 # of a condition, ten a second

# Where the sample configuration lies for its explanation, which shows the whole path: the same for
# everybody who makes the pictures.
NODE_FOLDER=/dev/shm/node

WORK=$(mktemp -d)
terminal=0 # each has a server of its own: one that ends would take the next one along
node=
has_folder=

clean_up()
{
    on_terminal kill-server 2>/dev/null || true
    if [ -n "$node" ]; then
        kill -TERM "$node" 2>/dev/null || true
        wait "$node" 2>/dev/null || true
    fi
    rm -rf -- "$WORK"
    if [ -n "$has_folder" ]; then
        rm -rf -- "$NODE_FOLDER"
    fi
}
trap clean_up EXIT

die()
{
    echo "make_pictures.sh: $*" >&2
    exit 1
}

for program in cmm_node cmmctl; do
    [ -x "$BIN/$program" ] || die "$BIN/$program is not built"
done

on_terminal()
{
    TMUX='' tmux -S "$WORK/terminal$terminal" -f /dev/null "$@"
}

# open_terminal COLUMNS LINES [FOLDER]: a shell with a short prompt that finds cmmctl by its name.
open_terminal()
{
    terminal=$((terminal + 1))
    on_terminal new-session -d -x "$1" -y "$2" -c "${3:-$PWD}" \
        "env PATH='$BIN:$PATH' PS1='\$ ' PROMPT_COMMAND= bash --norc --noprofile"
    on_terminal set -g status off
}

# wait_for WHAT COMMAND...: until the command succeeds.
wait_for()
{
    local what=$1 i
    shift
    for ((i = 0; i < TRIES; ++i)); do
        "$@" && return
        sleep 0.1
    done
    die "waited in vain for $what; the screen:
$(on_terminal capture-pane -p 2>/dev/null)"
}

# screen_has PATTERN: keeps the very screen that it looks at, so that what is drawn is what matched.
screen_has()
{
    on_terminal capture-pane -epN >"$WORK/screen" 2>/dev/null || return 1
    sed 's/\x1b\[[0-9;]*m//g' "$WORK/screen" | grep -qE -- "$1"
}

# draw COLUMNS TITLE FILE
draw()
{
    tools/render_terminal.py --columns "$1" --title "$2" <"$WORK/screen" >"$WORK/picture"
    mv -- "$WORK/picture" "$3"
    echo "$3"
}

# Somebody waits, and the page pool has a rate, as it has from the second look on.
top_tells_all()
{
    screen_has '^waiting [1-9].*oldest' && screen_has '^PAGE.*% +[0-9.k]+ +[0-9]'
}

# The shell's prompt is back below the command's output.
command_is_done()
{
    screen_has '^\$ cmmctl explain' && screen_has '^\$ *$'
}

process_answers()
{
    kill -0 "$node" 2>/dev/null || die "cmm_node ended: $(cat "$WORK/node.log")"
    "$BIN/cmmctl" -s "$WORK/console" help >/dev/null 2>&1
}

make_top()
{
    head -c "${SAMPLE_MIB}M" /dev/urandom >"$WORK/volume"
    "$BIN/cmm_node" --console "$WORK/console" --config apps/cmm_node/etc --replica-dir "$WORK" \
        --threads 8 "$WORK/volume" >"$WORK/node.log" 2>&1 &
    node=$!
    wait_for "the console of cmm_node" process_answers
    open_terminal 80 24
    on_terminal send-keys "cmmctl -s '$WORK/console' top" Enter
    wait_for "requests that wait" top_tells_all
    draw 80 "cmmctl top" docs/cmmctl_top.svg
    on_terminal send-keys q
    on_terminal kill-server
}

make_explain()
{
    mkdir -- "$NODE_FOLDER"
    has_folder=yes
    cp -- "$CONFIG" "$NODE_FOLDER"
    open_terminal 100 70 "$NODE_FOLDER"
    on_terminal send-keys -l \
        "cmmctl explain node_config.xml --process cmm_node --memory 9000000000"
    on_terminal send-keys Enter
    wait_for "the explanation" command_is_done
    draw 100 "cmmctl explain" docs/cmmctl_explain.svg
    on_terminal kill-server
}

make_top
make_explain
