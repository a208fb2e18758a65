#!/usr/bin/env bash
# Encrypted output: the standard security handler at 40 and 128 bits as qpdf reports it, the permissions
# from the --disallow options, readers that need the user password, and a decrypted copy whose text is
# the unencrypted file's.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v qpdf >/dev/null && command -v pdftotext >/dev/null || exit 77

cat >doc.html <<'HTML'
<!DOCTYPE html><html><head><title>Quarterly (draft) report</title><style>
@page { size: 300pt 300pt; margin: 20pt }
body { font: 12pt "DejaVu Sans" }
</style></head><body>
<h1 id="top">Quarterly report</h1>
<p>Sales rose (slightly) in every region.</p>
<p><a href="#top">Back to the top</a></p>
</body></html>
HTML

run() {
    local name=$1
    shift
    timeout 60 "$VELLUM" doc.html -o "$name.pdf" "$@" 2>"$name.err"
    expect_eq "$name: status" "$?" 0
}

run plain
run e40 --encrypt
run e128 --encrypt --key-bits=128 --user-password=u --owner-password=o --disallow-print --disallow-modify
run copy --disallow-copy --no-compress
run annotate --key-bits=128 --disallow-annotate
plain_text=$(pdftotext plain.pdf -)
expect_contains "plain text" "$plain_text" "Sales rose (slightly)"

# 40 bits: revision 2, a five-byte key, everything allowed, and the empty user password opens it.
info=$(qpdf --show-encryption --show-encryption-key e40.pdf 2>&1)
expect_contains "40: revision" "$info" "R = 2"
expect_contains "40: permissions" "$info" "P = -4"
key=$(echo "$info" | sed -n 's/^Encryption key = //p')
expect_eq "40: key length" "${#key}" 10
expect_contains "40: printing" "$info" "print high resolution: allowed"
qpdf_clean "e40" e40.pdf
expect_eq "40: text" "$(pdftotext e40.pdf - 2>&1)" "$plain_text"
expect_contains "40: encrypt dictionary" "$(qpdf --show-object=trailer e40.pdf)" "/Encrypt"

# 128 bits with passwords: revision 3, a sixteen-byte key, printing and modifying taken away.
info=$(qpdf --password=o --show-encryption --show-encryption-key e128.pdf 2>&1)
expect_contains "128: revision" "$info" "R = 3"
expect_contains "128: permissions" "$info" "P = -16"
expect_contains "128: owner password" "$info" "Supplied password is owner password"
expect_contains "128: user password recovered" "$info" "User password = u"
key=$(echo "$info" | sed -n 's/^Encryption key = //p')
expect_eq "128: key length" "${#key}" 32
expect_contains "128: no printing" "$info" "print low resolution: not allowed"
expect_contains "128: no modifying" "$info" "modify other: not allowed"
expect_contains "128: copying" "$info" "extract for any purpose: allowed"
expect_contains "128: user password" "$(qpdf --password=u --show-encryption e128.pdf 2>&1)" \
    "Supplied password is user password"
expect_contains "128: wrong password" "$(qpdf --password=x --check e128.pdf 2>&1)" "invalid password"
out=$(pdftotext e128.pdf - 2>&1)
expect_eq "128: poppler refuses without the password" "$?" 1
expect_contains "128: poppler's message" "$out" "Incorrect password"
expect_eq "128: poppler with the user password" "$(pdftotext -upw u e128.pdf -)" "$plain_text"
expect_eq "128: poppler with the owner password" "$(pdftotext -opw o e128.pdf -)" "$plain_text"
qpdf --password=u --decrypt e128.pdf decrypted.pdf
expect_eq "128: decrypt" "$?" 0
qpdf_clean "decrypted" decrypted.pdf
expect_eq "128: decrypted text" "$(pdftotext decrypted.pdf -)" "$plain_text"
# The link and the title survive decryption.
expect_contains "128: title" "$(pdfinfo -upw u e128.pdf)" "Quarterly (draft) report"

# A --disallow option alone encrypts. Uncompressed, the file holds no readable string but those of the
# encryption dictionary and the trailer's /ID.
info=$(qpdf --show-encryption copy.pdf 2>&1)
expect_contains "copy: encrypted" "$info" "R = 2"
expect_contains "copy: permissions" "$info" "P = -20"
expect_not_contains "copy: title encrypted" "$(cat copy.pdf | tr -d '\0')" "Quarterly"
expect_not_contains "copy: text encrypted" "$(cat copy.pdf | tr -d '\0')" "Sales"
expect_eq "copy: text" "$(pdftotext copy.pdf -)" "$plain_text"
expect_contains "annotate: permissions" "$(qpdf --show-encryption annotate.pdf 2>&1)" "modify annotations: not allowed"
expect_contains "annotate: revision" "$(qpdf --show-encryption annotate.pdf 2>&1)" "R = 3"

# A key size other than 40 and 128 stops the run and writes nothing.
timeout 60 "$VELLUM" doc.html -o bad.pdf --key-bits=64 2>bad.err
expect_eq "key-bits 64: status" "$?" 1
expect_contains "key-bits 64: message" "$(cat bad.err)" "invalid value for option \`--key-bits'"
[ -e bad.pdf ] && fail "key-bits 64: a file was written"

# A profile does not allow encryption: the file comes out unencrypted, and the run says so.
timeout 60 "$VELLUM" doc.html -o profiled.pdf --encrypt --pdf-profile=PDF/A-1b 2>profiled.err
expect_eq "profile: status" "$?" 0
expect_contains "profile: message" "$(cat profiled.err)" "PDF/A-1b does not support encryption"
expect_contains "profile: not encrypted" "$(qpdf --show-encryption profiled.pdf 2>&1)" "File is not encrypted"
finish
