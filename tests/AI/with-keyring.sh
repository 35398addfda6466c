#!/bin/sh
# Runs a command with a private, unlocked GNOME keyring on a private D-Bus session, and
# with HOME and the XDG folders in a fresh temporary folder, so tests never see or touch
# the user's own keys and settings. Usage: with-keyring.sh COMMAND [ARGUMENTS...]
set -eu
scratch=$(mktemp -d "${TMPDIR:-/tmp}/sorvi-keyring.XXXXXX")
trap 'rm -rf "$scratch"' EXIT INT TERM
export HOME="$scratch/home"
export XDG_CONFIG_HOME="$scratch/config"
export XDG_DATA_HOME="$scratch/data"
export XDG_CACHE_HOME="$scratch/cache"
export XDG_RUNTIME_DIR="$scratch/runtime"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset ANTHROPIC_API_KEY OPENAI_API_KEY XAI_API_KEY
export SORVI_TEST_KEYRING=1
# The daemon reads the new keyring's password from standard input and serves the
# Secret Service on the session bus that dbus-run-session tears down at the end.
dbus-run-session -- sh -c '
  printf "test-password" | gnome-keyring-daemon --unlock --components=secrets >/dev/null
  "$@"' sorvi-keyring "$@"
