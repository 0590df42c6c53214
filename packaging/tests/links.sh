#!/usr/bin/env bash
# links.sh FOLDER: every relative link in the Markdown files below FOLDER, but for what is built there,
# leads to something that is there.
set -euo pipefail

folder=$1
links=0
status=0

while IFS= read -r -d '' file; do
    while read -r link; do
        [[ $link != *://* && $link != "#"* ]] || continue
        ((++links))
        [[ -e $(dirname "$file")/${link%%#*} ]] || {
            echo "links: in $file '$link' leads nowhere" >&2
            status=1
        }
    done < <(sed '/^```/,/^```/d' "$file" | grep -oP '\]\(\K[^)]+' || true)
done < <(find "$folder" -path "$folder/build" -prune -o -name '*.md' -print0)

((links > 0)) || {
    echo "links: no link found below $folder" >&2
    status=1
}
((status != 0)) || echo "links: ${folder##*/}: all $links lead somewhere"
exit "$status"
