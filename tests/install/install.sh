#!/bin/bash
# install.sh SOURCES BUILD: installs the tree and moves it away, then builds the example programs of
# the documents against it and runs them. Called by ctest, in the sandbox.
set -euo pipefail
sources=$1 build=$2
place=$KELVO_SANDBOX tree=$KELVO_SANDBOX/moved
cd "$place"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$place/first" >install.log
mv first "$tree"
trap '"$tree/bin/zojob" quit' EXIT

headers=$(cd "$tree/include" && echo */*.h)
wanted="schedule/ZoExport.h schedule/ZoJob.h schedule/ZoJobList.h schedule/ZoJobServer.h \
schedule/ZoSchedule.h utlib/UtDArray.h utlib/UtDirectory.h utlib/UtEnvironment.h utlib/UtExport.h \
utlib/UtFilename.h utlib/UtHandle.h utlib/UtMemory.h utlib/UtServerSocket.h utlib/UtSocket.h \
utlib/UtString.h utlib/UtStringTokenizer.h utlib/UtTmpDir.h"
# The window is built where Qt has Widgets.
files=()
if [[ -e $build/bin/zojob-window ]]; then
    wanted+=" window/ZoJobModel.h window/ZoJobPanel.h window/ZoWindowExport.h"
    files+=(man/man1/zojob-window.1 applications/zojob-window.desktop
        icons/hicolor/scalable/apps/zojob-window.svg
        metainfo/org.example.kelvo_schedule.zojob_window.metainfo.xml)
fi
[[ $headers == "$wanted" ]] || fail "installed: $headers"
for file in bash-completion/completions/zojob zsh/site-functions/_zojob \
    fish/vendor_completions.d/zojob.fish man/man1/{start,zojob}.1 "${files[@]}"; do
    [[ -e $tree/share/$file ]] || fail "not installed: share/$file"
done
[[ -e $tree/lib/libutlib.so.1 && -e $tree/lib/libschedule.so.1 ]] || fail "libraries: $(ls "$tree/lib")"
# The headers need one another and Qt, and nothing that is not installed.
(cd "$tree/include" && printf '#include "%s"\n' */*.h) >headers.cpp
qt=Core
[[ ! -e $tree/include/window ]] || qt=Widgets
read -ra flags <<<"$(pkg-config --cflags Qt6$qt 2>/dev/null || pkg-config --cflags Qt5$qt)"
c++ -std=c++17 -fPIC -fsyntax-only headers.cpp -I"$tree/include" "${flags[@]}"

# What the documents show is what is built and run here.
documents=$(cat "$sources"/README.md "$sources"/doc/{embedding,protocol}.md)
for file in "$sources"/doc/examples/*; do
    [[ $documents == *"$(<"$file")"* ]] || fail "no document shows ${file##*/} as it is"
done

cmake -S "$sources/doc/examples" -B with-cmake -DCMAKE_PREFIX_PATH="$tree" >cmake.log
cmake --build with-cmake >>cmake.log || fail "find_package: $(<cmake.log)"
mkdir wanting
printf '%s\n' 'cmake_minimum_required(VERSION 3.21)' 'project(wanting NONE)' \
    'find_package(KelvoSchedule REQUIRED COMPONENTS nosuch)' >wanting/CMakeLists.txt
! cmake -S wanting -B wanting -DCMAKE_PREFIX_PATH="$tree" &>wanting/log || fail "a component that is not there"
grep -q "_FOUND to FALSE" wanting/log || fail "find_package: $(<wanting/log)"
export PKG_CONFIG_PATH=$tree/lib/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs schedule) -Wl,-rpath,$tree/lib"
mkdir with-pkg-config
for name in queue submit list; do
    c++ -std=c++17 "$sources/doc/examples/$name.cpp" -o with-pkg-config/$name "${flags[@]}"
done

# An application with the panel: it runs until somebody ends it.
if [[ -e $build/bin/zojob-window ]]; then
    "$tree/bin/zojob-window" --version >window.log || fail "zojob-window: $(<window.log)"
    status=0
    QT_QPA_PLATFORM=offscreen timeout 3 ./with-cmake/dock "$tree" 2>dock.log || status=$?
    ((status == 124)) || fail "dock: $status $(<dock.log)"
fi

for how in with-cmake with-pkg-config; do
    ./$how/submit "$tree" 'echo it runs in $PWD' >log || fail "$how/submit: $(<log)"
    grep -q '^it runs in /var/tmp/example' log || fail "$how/submit printed: $(<log)"
    ./$how/submit "$tree" 'echo "quoted"' 2>/dev/null && fail "$how/submit: a quote was carried"
    [[ -z $(./$how/list "$tree") ]] || fail "$how/submit left its job behind"
done
[[ $(ps xo args) == *"$tree/bin/start -jobserver 7160"* ]] || fail "another tree's server runs"
python3 "$sources/doc/examples/client.py" 'echo hello; exit 3' >log || fail "client.py: $(<log)"
[[ $(<log) == $'Starting "echo hello; exit 3"\nhello' ]] || fail "client.py printed: $(<log)"

[[ $(./with-cmake/queue "$tree" 'echo from an application') == "11 echo from an application" ]] ||
    fail "queue does not show the job as running"
"$tree/bin/zojob" wait last
[[ $("$tree/bin/zojob" log last) == *"from an application" ]] || fail "zojob does not show its log"
"$tree/bin/zojob" remove --force last
