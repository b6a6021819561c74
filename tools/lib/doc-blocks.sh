# shellcheck shell=bash
# Sourced by the scripts that run what the documentation shows.

# doc_blocks FOLDER PAGE...: writes every sh block of the pages into FOLDER, one file each, named after page and line.
# An HTML comment before a block says what is not run, and why:
#   <!-- not run: needs hours -->                          the whole block: FOLDER/NAME.skipped holds the reason
#   <!-- not run, ./test.sh: what CI runs before this -->  lines that begin with ./test.sh
doc_blocks() {
  local folder=$1
  shift
  rm -rf "$folder"
  mkdir -p "$folder"
  awk -v folder="$folder" '
    FNR == 1 { inside = 0; comment = "" }
    !inside && /<!-- not run/ { comment = $0; sub(/^ *<!-- not run/, "", comment); sub(/ *-->.*/, "", comment); next }
    !inside && /^ *```sh$/ {
      inside = 1
      name = FILENAME
      gsub(/\//, "_", name)
      name = sprintf("%s/%s:%03d", folder, name, FNR)
      dropped = ""
      whole = comment ~ /^:/
      if (comment ~ /^, /) { dropped = substr(comment, 3); sub(/:.*/, "", dropped) }
      if (whole) { reason = comment; sub(/^: */, "", reason); print reason > (name ".skipped") }
      else printf "" > (name ".sh")
      next
    }
    inside && /^ *```$/ { inside = 0; comment = ""; next }
    inside && !whole && (dropped == "" || index($0, dropped) != 1) { print > (name ".sh") }
    !inside && NF { comment = "" }
  ' "$@"
}

# doc_material PROGRAM: what the examples take for granted, drawn by the given csrt-track into the current folder:
# street.mp4 and frames/0000.jpg onwards.
doc_material() {
  local number
  "$1" draw-scene street.mp4 --frames 45
  "$1" track street.mp4 --frames 2 --box 412,230,64,48 --still still.jpg --quiet
  mkdir -p frames
  for number in $(seq -f %04g 0 45); do cp still.jpg "frames/$number.jpg"; done
  rm still.jpg
}
