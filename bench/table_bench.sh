#!/bin/bash
# Times the conversion of a long table with a header and a footer repeated on every page: seconds,
# pages and peak memory for each number of rows, to see that the cost grows in line with the rows.
# Usage: bench/table_bench.sh [BUILD_DIR] [ROWS...]   (default sizes: 1000 and 5000 rows; NESTED_DEPTHS
# sets the depths of the nested-table documents, default "8 16 32")
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
shift || true
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1000 5000)
for rows in "${sizes[@]}"; do
    input=$work/table-$rows.html
    output=$work/table-$rows.pdf
    {
        echo '<!DOCTYPE html><html><head><style>'
        echo 'body { font: 9pt "DejaVu Sans" } table { border-collapse: collapse; width: 100% }'
        echo 'td, th { border: 0.5pt solid #444; padding: 2pt 4pt } td.n { text-align: right }'
        echo 'thead th { background: #ddd }'
        echo '</style></head><body><table>'
        echo '<thead><tr><th>No.</th><th>Description</th><th>Quantity</th><th>Amount</th></tr></thead>'
        echo '<tfoot><tr><td colspan="3">Carried forward</td><td class="n">-</td></tr></tfoot><tbody>'
        awk -v n="$rows" 'BEGIN { for (i = 1; i <= n; i++)
            printf "<tr><td>%d</td><td>Item number %d of the order</td><td class=\"n\">%d</td><td class=\"n\">%d.%02d</td></tr>\n", i, i, i % 17, i * 3, i % 100 }'
        echo '</tbody></table></body></html>'
    } >"$input"
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$input" -o "$output" 2>"$work/log" || {
        echo "vellum failed on the $rows-row table:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs user kb <"$work/time"
    made=$(pdfinfo "$output" | awk '/^Pages:/ {print $2}')
    headers=$(pdftotext "$output" - | grep -c '^Description$' || true)
    printf "%s-row table: %s pages (%s with the header) in %s s (%s s user), peak memory %s MB\n" \
        "$rows" "$made" "$headers" "$secs" "$user" "$((kb / 1024))"
done

# Tables nested in cells, each cell a long paragraph and then the next table: every level's rows split
# on every page, so the cost should grow with the words times the depth, not with a power of the depth.
for depth in ${NESTED_DEPTHS:-8 16 32}; do
    input=$work/nested-$depth.html
    output=$work/nested-$depth.pdf
    python3 -c "
import sys
d = int(sys.argv[1])
para = '<p>' + ' '.join('word%d' % i for i in range(300)) + '</p>'
print('<html><body>' + ('<table border=1><tr><td>' + para) * d + '</td></tr></table>' * d + '</body></html>')" \
        "$depth" >"$input"
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$input" -o "$output" 2>"$work/log" || {
        echo "vellum failed on $depth nested tables:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs user kb <"$work/time"
    made=$(pdfinfo "$output" | awk '/^Pages:/ {print $2}')
    printf "%s nested tables: %s pages in %s s (%s s user), peak memory %s MB\n" \
        "$depth" "$made" "$secs" "$user" "$((kb / 1024))"
done
