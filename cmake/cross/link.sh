#!/bin/sh
# link.sh LAUNCHER COMMAND ...: links as told. In the place of a program comes the launcher that has
# it run by an emulator; the program itself gets a dot before its name.
set -e
launcher=$1
shift
"$@"
while [ $# -gt 0 ]; do
    case $1 in
        -shared) exit 0 ;;
        -o) out=$2 ;;
    esac
    shift
done
case ${out:-} in '' | *.so | *.so.*) exit 0 ;; esac
mv -f "$out" "$(dirname "$out")/.$(basename "$out")"
ln -f "$launcher" "$out"
touch "$out"
