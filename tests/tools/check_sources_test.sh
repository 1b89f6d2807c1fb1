#!/usr/bin/env bash
# Plants one fault at a time in a small tree and expects check_sources.py to name it, and nothing else.
# Usage: check_sources_test.sh ROOT
set -u
checker=${1:?usage: check_sources_test.sh ROOT}/tools/check_sources.py
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fresh_tree() {
  rm -rf "$work/tree"
  mkdir -p "$work/tree"/{core,support,platform,sim,tests}
  cat >"$work/tree/support/a.h" <<'CODE'
#pragma once
#include <cstddef>
namespace bds {
struct STATE { int Value = 0; };
extern constinit STATE gState;
}  // namespace bds
CODE
  cat >"$work/tree/core/b.cpp" <<'CODE'
#include "support/a.h"
namespace bds {
constinit STATE gState;
constexpr int kTable[] = {1, 2};
// new words, static int x; throw and #ifdef in a comment are no fault
const char* Text() { return "static int x; throw new delete x;"; }
static_assert(sizeof(STATE) == 4);
static constexpr int kOther = 1;
}  // namespace bds
CODE
  echo '#include <vector>' >"$work/tree/sim/c.h"
  echo '#include "sim/c.h"' >"$work/tree/tests/d.cpp"
}

expect() {  # expect WHAT STATUS PATTERN
  local output status
  output=$(python3 "$checker" "$work/tree" 2>&1)
  status=$?
  if [ "$status" -ne "$2" ] || ! grep -qF -- "$3" <<<"$output"; then
    echo "FAILED: $1: exit status $status, expected $2 with \"$3\"; it printed:"
    echo "$output"
    failures=$((failures + 1))
  fi
}

planted() {  # planted WHAT FILE LINE PATTERN: a line added to a file of a fresh tree
  fresh_tree
  echo "$3" >>"$work/tree/$2"
  expect "$1" 1 "$4"
  expect "$1, alone" 1 ", 1 faults"
}

fresh_tree
expect "a clean tree" 0 "4 files checked, 0 faults"

planted "hosted header" core/b.cpp '#include <vector>' 'core/b.cpp:10: <vector> is a hosted header'
planted "C header" support/a.h '#include <string.h>' 'support/a.h:7: <string.h> is a hosted header'
planted "simulator in the driver" core/b.cpp '#include "sim/c.h"' '"sim/c.h" is no part of the driver'
planted "missing file" sim/c.h '#include "sim/none.h"' 'sim/c.h:2: "sim/none.h" does not exist'
planted "static variable" core/b.cpp '  static int calls = 0;' 'core/b.cpp:10: a static variable'
planted "static record" core/b.cpp '  static Log log{1};' 'core/b.cpp:10: a static variable'
planted "global without constinit" core/b.cpp 'Log gLog{1};' 'a variable without constinit'
planted "global from a call" core/b.cpp 'const int gStart = Now();' 'a variable without constinit'
planted "exception" core/b.cpp 'void F() { throw 1; }' 'an exception'
planted "heap" core/b.cpp 'int* F() { return new int; }' "the heap's new"
planted "heap given back" core/b.cpp 'void F(int* p) { delete p; }' "the heap's delete"
planted "thread variable" core/b.cpp '  thread_local int t;' 'thread_local'
planted "run-time types" core/b.cpp 'bool F(B* b) { return dynamic_cast<D*>(b); }' 'run-time type information'
planted "conditional compilation" core/b.cpp '#ifdef DEBUG' 'conditional compilation belongs to platform/'

fresh_tree
echo '#ifdef _WIN32' >>"$work/tree/platform/e.h"
expect "conditional compilation in platform" 0 "5 files checked, 0 faults"

fresh_tree
echo '#include "support/f.h"' >>"$work/tree/support/a.h"
echo '#include "core/g.h"' >"$work/tree/support/f.h"
echo '#include "support/a.h"' >"$work/tree/core/g.h"
expect "a circle of three" 1 'includes form a circle: '
expect "a circle of three, once" 1 ', 1 faults'

fresh_tree
echo '#include "sim/c.h"' >>"$work/tree/sim/c.h"
expect "a file that includes itself" 1 'includes form a circle: sim/c.h -> sim/c.h'

if python3 "$checker" "$work/none" >/dev/null 2>&1; then
  echo "FAILED: a missing tree is accepted"
  failures=$((failures + 1))
fi

echo "$failures failures"
[ "$failures" -eq 0 ]
