#!/bin/sh
# Includes point down the layers only:
#   platform < host < model < generator, build, dispatch, services, converter, catalogues < RuvoManager < apps
# Prints every include that points up or sideways and fails if there is one.
root="$1"
status=0
TMPDIR_LAYER=$(mktemp -d)
trap 'rm -rf "$TMPDIR_LAYER"' EXIT
rank() {
    case "$1" in
        platform) echo 0 ;; host) echo 1 ;; model) echo 2 ;;
        generator|build|dispatch|services|converter|catalogues) echo 3 ;;
        RuvoManager) echo 4 ;; apps) echo 5 ;; *) echo "" ;;
    esac
}
for dir in platform host model generator build dispatch services converter catalogues RuvoManager apps; do
    own=$(rank "$dir")
    for file in $(find "$root/$dir" -name '*.h' -o -name '*.cpp' -o -name '*.c' -o -name '*.inc'); do
        grep -o '#include "[A-Za-z]*/' "$file" | sed 's/#include "//; s#/##' | sort -u |
        while read -r target; do
            other=$(rank "$target")
            [ -z "$other" ] && continue
            if [ "$target" != "$dir" ] && [ "$other" -ge "$own" ]; then
                echo "${file#$root/}: includes $target/ (layer $other) from $dir/ (layer $own)"
                echo x >> "$TMPDIR_LAYER/bad"
            fi
        done
    done
done
[ -s "$TMPDIR_LAYER/bad" ] && status=1
exit $status
