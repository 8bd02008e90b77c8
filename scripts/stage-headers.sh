#!/usr/bin/env bash
# Copies header-only libraries to build/deps/mingw/include for the Windows build. The compiler must not search
# /usr/include: it would find the headers of Linux there.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

staged=$DEPS/mingw/include
work=$DEPS/mingw/include.work
key=$(content_key "${BASH_SOURCE[0]}" /usr/include/utf8cpp/utf8.h /usr/include/utf8cpp/utf8/*.h \
  /usr/include/CLI/*.hpp /usr/include/fmt/*.h /usr/include/nlohmann/json.hpp /usr/include/xxhash.h)

is_complete() { [ "$(cat "$staged/.complete" 2>/dev/null)" = "$key" ]; }

is_complete && exit 0
enter_step headers
is_complete && exit 0

rm -rf "$work"
mkdir -p "$work"
cp -r /usr/include/utf8cpp/. "$work"
cp -r /usr/include/CLI /usr/include/fmt /usr/include/nlohmann /usr/include/xxhash.h "$work"
echo "$key" >"$work/.complete"
rm -rf "$staged"
mv "$work" "$staged"
