#!/usr/bin/env bash
# make-single-file.sh PACKAGE-DIR OUTPUT — turns a package folder into the one
# download file (for example Quillmark8Setup.exe):
#   1. pkglint checks the package as setup will read it (under Wine): errors
#      stop the build, warnings are printed;
#   2. a copy of the package is made and its setup.exe signed;
#   3. sfx/make_sfx.py appends that copy to the stub as one cabinet;
#   4. the result is signed.
# Programs: the stub from QM_SFX_TREE (default build/i686, the shipped 32-bit
# one); the linter from QM_LINT_TREE (default build/x86_64 when built there,
# else the stub's tree): a build tool, it runs under any 64-bit Wine. Wine:
# WINEPREFIX when set, else a prefix of its own in the linter's tree.
# Signing (Authenticode, with osslsigncode):
#   QM_SIGN_PFX        the certificate with its private key (PKCS#12 file)
#   QM_SIGN_PASSWORD   its password (or QM_SIGN_PASSWORD_FILE, a file holding it)
#   QM_SIGN_TIMESTAMP  address of a time-stamping server (optional)
# Without QM_SIGN_PFX, and with CI=true or QM_SIGN_THROWAWAY=1, a throw-away
# certificate is made for this one build in OUTPUT's folder (throwaway-cert/:
# cert.pem to verify against); otherwise nothing is signed.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
[ $# -eq 2 ] || { echo "usage: make-single-file.sh PACKAGE-DIR OUTPUT" >&2; exit 2; }
package="$(cd "$1" && pwd)"
output="$2"
out_dir="$(mkdir -p "$(dirname "$output")" && cd "$(dirname "$output")" && pwd)"
tree="${QM_SFX_TREE:-$root/build/i686}"
lint_tree="${QM_LINT_TREE:-$root/build/x86_64}"
[ -f "$lint_tree/bin/pkglint.exe" ] || lint_tree="$tree"
stub="$tree/bin/sfxstub.exe"
linter="$lint_tree/bin/pkglint.exe"
for program in "$stub" "$linter"; do
  [ -f "$program" ] || { echo "make-single-file: $program is missing (build the tree first)" >&2; exit 1; }
done

if [ -z "${WINEPREFIX:-}" ]; then
  export WINEPREFIX="$lint_tree/wineprefix-tools" WINEDEBUG=-all
  bash "$root/scripts/make-prefix.sh" "$WINEPREFIX" x86_64
fi
echo "== pkglint $package"
WINEDEBUG=-all wine "$linter" "Z:${package//\//\\}" | tr -d '\r' ||
  { echo "make-single-file: the package has errors; nothing built" >&2; exit 1; }

pfx="${QM_SIGN_PFX:-}"
password="${QM_SIGN_PASSWORD:-}"
[ -z "${QM_SIGN_PASSWORD_FILE:-}" ] || password="$(cat "$QM_SIGN_PASSWORD_FILE")"
if [ -z "$pfx" ] && { [ "${CI:-}" = true ] || [ "${QM_SIGN_THROWAWAY:-}" = 1 ]; }; then
  # A key made for this build only and never kept anywhere else.
  certs="$out_dir/throwaway-cert"
  rm -rf "$certs"; mkdir -p "$certs"
  password="$(openssl rand -hex 16)"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -keyout "$certs/key.pem" -out "$certs/cert.pem" \
    -subj "/CN=Quillmark 8 Setup throw-away test signing" \
    -addext "extendedKeyUsage=codeSigning" -addext "keyUsage=digitalSignature" 2>/dev/null
  openssl pkcs12 -export -inkey "$certs/key.pem" -in "$certs/cert.pem" -out "$certs/cert.pfx" -passout "pass:$password"
  rm -f "$certs/key.pem"
  pfx="$certs/cert.pfx"
fi
homepage="$(sed -n 's/^QM_HOMEPAGE:STRING=//p' "$tree/CMakeCache.txt" 2>/dev/null || true)"
sign() {  # sign FILE: in place, when there is a certificate
  [ -n "$pfx" ] || return 0
  osslsigncode sign -pkcs12 "$pfx" -pass "$password" -h sha256 -n "Quillmark 8 Setup" \
    ${homepage:+-i "$homepage"} ${QM_SIGN_TIMESTAMP:+-ts "$QM_SIGN_TIMESTAMP"} \
    -in "$1" -out "$1.signed" >/dev/null
  mv -f "$1.signed" "$1"
  echo "signed: $1"
}

staging="$(mktemp -d "$out_dir/.package.XXXXXX")"
trap 'rm -rf "$staging"' EXIT
cp -a "$package/." "$staging/"
sign "$staging/setup.exe"
python3 "$root/sfx/make_sfx.py" "$stub" "$staging" "$output"
sign "$output"
[ -n "$pfx" ] || echo "not signed (no QM_SIGN_PFX): $output"
