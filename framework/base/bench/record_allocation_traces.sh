#!/bin/bash
# Records the allocation traffic of six real programs of this machine and
# converts each into a trace for qel_allocator_replay_bench:
#
#   pycompile  python3 compiling its standard library's sources
#   pydict     python3 building and sorting a dictionary of 300,000 entries
#   gxx        g++ -O2 compiling a translation unit that includes the whole
#              standard library (the compiler proper, cc1plus)
#   sqlite     sqlite3 with a 64 MB page cache: 300,000 rows inserted,
#              indexed, queried, updated and deleted
#   cmake      cmake configuring a project with compiler checks and list work
#   gitrepack  git repacking 40 MB of headers with three delta threads
#
# python3 runs with PYTHONMALLOC=malloc, so that its objects come from
# malloc rather than from its own small-object pools.
#
#   record_allocation_traces.sh BUILD_DIR [OUT_DIR]
#
# BUILD_DIR is a linux-bench build (it has bin/qel_allocator_replay_bench and
# lib/libqel_alloc_recorder.so); OUT_DIR defaults to BUILD_DIR/traces. The
# traces take about 700 MB and are not kept in the repository. Then:
#
#   BUILD_DIR/bin/qel_allocator_replay_bench OUT_DIR/*.trace
set -euo pipefail

build=$(realpath "${1:?usage: $0 BUILD_DIR [OUT_DIR]}")
out=$(realpath -m "${2:-$build/traces}")
recorder=$build/lib/libqel_alloc_recorder.so
replay=$build/bin/qel_allocator_replay_bench
for tool in "$recorder" "$replay"; do
    [ -e "$tool" ] || { echo "missing $tool: build qel_alloc_recorder and qel_allocator_replay_bench" >&2; exit 1; }
done
# Debian's python3, not one that a version manager put first on PATH.
python=/usr/bin/python3
[ -x $python ] || python=$(command -v python3)
for program in $python g++ sqlite3 cmake git; do
    command -v $program > /dev/null || { echo "missing $program" >&2; exit 1; }
done

mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# record NAME COMMAND...: runs the command with the recorder preloaded and
# keeps the log of the process that called the allocator most.
record() {
    local name=$1
    shift
    echo "recording $name: $*"
    mkdir -p "$work/logs"
    rm -f "$work/logs/"*
    QEL_ALLOC_TRACE="$work/logs/$name" LD_PRELOAD="$recorder" "$@" > /dev/null
    "$replay" --convert "$(ls -S "$work/logs/"* | head -n 1)" "$out/$name.trace"
    rm -f "$work/logs/"*
}

pylib=$($python -c 'import sysconfig; print(sysconfig.get_paths()["stdlib"])')
PYTHONMALLOC=malloc record pycompile $python -c "
import os, sys
count = 0
for folder, folders, files in os.walk(sys.argv[1]):
    folders[:] = sorted(f for f in folders if f not in ('test', 'site-packages', 'dist-packages', 'idlelib'))
    for name in sorted(files):
        if name.endswith('.py'):
            path = os.path.join(folder, name)
            with open(path, 'rb') as source:
                try:
                    compile(source.read(), path, 'exec', dont_inherit=True)
                except SyntaxError:
                    pass
            count += 1
print(count)
" "$pylib"

PYTHONMALLOC=malloc record pydict $python -c "
import random
random.seed(1)
table = {}
for i in range(300000):
    table['key%d' % random.randrange(10**9)] = [i, str(i), (i, i * 2)]
by_key = sorted(table.items())
by_text = sorted(table, key=lambda k: table[k][1])
print(len(by_key), len(by_text))
"

cat > "$work/big.cpp" << 'EOF'
#include <bits/stdc++.h>
int main()
{
    std::map<std::string, std::vector<std::regex>> patterns;
    patterns["a"].emplace_back("a+b*");
    std::unordered_map<int, std::set<double>> sets;
    sets[1].insert(2.0);
    std::cout << patterns.size() << sets.size() << std::endl;
}
EOF
record gxx g++ -std=c++17 -O2 -c "$work/big.cpp" -o "$work/big.o"

cat > "$work/sqlite.sql" << 'EOF'
PRAGMA cache_size = -65536;
PRAGMA journal_mode = OFF;
PRAGMA synchronous = OFF;
CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT, c BLOB, d REAL);
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300000)
INSERT INTO t SELECT i, hex(randomblob(12)), randomblob(abs(random()) % 200), random() / 7.0 FROM n;
CREATE INDEX tb ON t(b);
CREATE INDEX td ON t(d);
SELECT count(*), sum(length(c)) FROM t WHERE b > '8';
SELECT b, count(*) FROM t GROUP BY substr(b, 1, 3) ORDER BY 2 DESC LIMIT 3;
UPDATE t SET c = randomblob(50) WHERE a % 3 = 0;
DELETE FROM t WHERE a % 5 = 0;
SELECT count(*) FROM t t1 JOIN t t2 ON t1.a = t2.a + 1 WHERE t1.d < 0;
EOF
record sqlite sqlite3 "$work/db.sqlite" -init "$work/sqlite.sql" ".quit"

mkdir -p "$work/cmake"
cat > "$work/cmake/CMakeLists.txt" << 'EOF'
cmake_minimum_required(VERSION 3.20)
project(probe C CXX)
include(CheckIncludeFile)
include(CheckFunctionExists)
include(CheckTypeSize)
include(CheckCXXSourceCompiles)
foreach(header stdio.h stdlib.h string.h unistd.h pthread.h sys/mman.h fcntl.h dlfcn.h)
    string(MAKE_C_IDENTIFIER "HAVE_${header}" var)
    check_include_file(${header} ${var})
endforeach()
foreach(function mmap munmap posix_memalign strndup)
    check_function_exists(${function} HAVE_${function})
endforeach()
check_type_size("long" SIZEOF_LONG)
check_cxx_source_compiles("int main() { return __cplusplus >= 201703L ? 0 : 1; }" HAVE_CXX17)
find_package(Threads)
file(GLOB_RECURSE headers /usr/include/*)
set(names "")
foreach(header IN LISTS headers)
    get_filename_component(name ${header} NAME_WE)
    string(TOUPPER "${name}" upper)
    list(APPEND names "${upper}")
endforeach()
list(SORT names)
list(REMOVE_DUPLICATES names)
list(LENGTH names count)
message(STATUS "${count} names")
EOF
record cmake cmake -S "$work/cmake" -B "$work/cmake/build"

mkdir -p "$work/repo"
cp -r /usr/include/c++ /usr/include/linux /usr/include/x86_64-linux-gnu "$work/repo/"
git -C "$work/repo" init -q
git -C "$work/repo" add -A
git -C "$work/repo" -c user.name=trace -c user.email=trace@localhost commit -qm one
find "$work/repo" -name '*.h' -not -path '*/.git/*' | sort | head -n 6000 | xargs sed -i 's/define/define /'
git -C "$work/repo" -c user.name=trace -c user.email=trace@localhost commit -qam two
record gitrepack git -C "$work/repo" -c pack.threads=3 repack -a -d -f -q --window=100 --depth=50

echo "traces in $out"
