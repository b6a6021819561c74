# shellcheck shell=bash
# npm_packages FOLDER PACKAGE...: installs npm packages by name into FOLDER, once. Ends the script that sourced this
# with 77 (skipped) and a reason where node, npm or the registry are not there.
npm_packages() {
  local folder=$1 name missing=()
  shift
  for name in node npm; do
    command -v "$name" >/dev/null || { echo "skipped: $name is not installed" >&2; exit 77; }
  done
  mkdir -p "$folder"
  exec 9>"$folder/.lock"
  flock 9
  for name in "$@"; do [ -e "$folder/node_modules/${name%@*}/package.json" ] || missing+=("$name"); done
  if [ ${#missing[@]} -gt 0 ]; then
    [ -e "$folder/package.json" ] || echo '{"private": true}' >"$folder/package.json"
    (cd "$folder" && timeout 120 npm install --no-audit --no-fund --fetch-retries=1 "${missing[@]}") >"$folder/npm.log" 2>&1 ||
      { echo "skipped: npm could not install ${missing[*]}" >&2; exit 77; }
  fi
  exec 9>&-
  export NODE_PATH=$folder/node_modules
}
