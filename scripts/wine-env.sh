# Sourced by the scripts that run Windows programs: one Wine prefix per build folder, quiet Wine,
# and no Mono or Gecko installer prompts while the prefix is made.
# Expects BUILD_DIR to be set to an absolute path. TALVORN_WINEPREFIX names another prefix (the
# installation package's test installs into a fresh one of its own).
export WINEPREFIX="${TALVORN_WINEPREFIX:-$BUILD_DIR/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
# Modules a program brings beside itself in place of Wine's own (space-separated names), such as
# the simulated mapi32.dll.
for dll in ${TALVORN_NATIVE_DLLS:-}; do
    WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$dll=n,b"
done
export WINEARCH=win64
