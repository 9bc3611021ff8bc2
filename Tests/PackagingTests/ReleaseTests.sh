#!/usr/bin/env bash
# What a release consists of.
source "$(dirname "$0")/Support.sh"

version=$(sed -n 's/.* version = "\(.*\)";/\1/p' "$source_dir/Sources/DHCPCore/DHCPCore.hpp")

need_repository() { git -C "$source_dir" rev-parse HEAD >/dev/null 2>&1 || skip "this tree is no git repository"; }

make_archive() {
    need_repository
    git clone -q "$source_dir" "$scratch/$1"
    "$scratch/$1/scripts/source-archive" >"$scratch/name"
    archive=$scratch/$1/$(cat "$scratch/name")
}

TheVersionStandsInTheHeaderAlone() {
    expect_empty "other places that name the version" "$(cd "$source_dir" &&
        grep -rlF "$version" CMakeLists.txt cmake scripts Packaging docs Sources run.sh test.sh | grep -v '^Sources/DHCPCore/DHCPCore.hpp$')"
}

TheChangesBeginWithTheVersion() {
    local heading
    heading=$(grep -m 1 '^## ' "$source_dir/CHANGELOG.md")
    [[ $heading == "## $version" || $heading == "## $version ("*")" ]] || fail "$heading"
}

TwoSourceArchivesOfOneCommitAreTheSameBytes() {
    local archive
    make_archive one
    cp "$archive" "$scratch/first"
    make_archive two
    cmp "$archive" "$scratch/first"
}

TheSourceArchiveHoldsTheCommittedTreeAndKnowsItsTime() {
    local archive
    make_archive clone
    expect_equal "name" "tarnwick-$version.tar.gz" "$(basename "$archive")"
    tar -xzf "$archive" -C "$scratch"
    expect_equal "files" "$(git -C "$source_dir" ls-tree -r --name-only HEAD | LC_ALL=C sort)" \
        "$(cd "$scratch/tarnwick-$version" && find . -type f -printf '%P\n' | LC_ALL=C sort)"
    expect_equal "time" "$(git -C "$source_dir" log -1 --format=%ct)" "$("$scratch/tarnwick-$version/scripts/release-time")"
}

TheFormulaIsRuby() {
    need ruby
    expect_equal "what ruby says" "Syntax OK" "$(ruby -wc "$source_dir/Packaging/Homebrew/tarnwick.rb" 2>&1)"
}

TheFormulaOfAReleaseNamesItsArchiveAndIsRuby() {
    need ruby
    echo "not much of an archive" >"$scratch/archive"
    "$source_dir/scripts/make-formula" https://example.org/archive.tar.gz "$scratch/archive" >"$scratch/tarnwick.rb"
    expect_equal "what ruby says" "Syntax OK" "$(ruby -wc "$scratch/tarnwick.rb" 2>&1)"
    expect_equal "what was added" "  url \"https://example.org/archive.tar.gz\"
  sha256 \"$(sha256sum "$scratch/archive" | cut -d ' ' -f 1)\"" \
        "$(diff "$source_dir/Packaging/Homebrew/tarnwick.rb" "$scratch/tarnwick.rb" | sed -n 's/^> //p')"
}

TheFormulaDependsOnWhatTheBuildNeeds() {
    local needed
    # A cache is for those who build again and again; the manual wants its compiler.
    needed=$(sed -n '/^homebrew_formulae/,/^}/s/^ *build) echo \(.*\) ;;/\1 scdoc/p' "$source_dir/scripts/setup" |
        tr ' ' '\n' | grep -vx ccache | LC_ALL=C sort)
    expect_equal "dependencies" "$needed" \
        "$(sed -n 's/^ *depends_on "\([^"]*\)".*/\1/p' "$source_dir/Packaging/Homebrew/tarnwick.rb" | LC_ALL=C sort)"
}

TheBillOfMaterialsNamesWhatIsLinked() {
    need jq readelf dpkg-query
    [ "$build_dir" = "$source_dir/build/release" ] || skip "the bill is made of build/release"
    "$source_dir/scripts/sbom" >"$scratch/bill"
    expect_equal "programs" "tarnwick $version $(sha256sum "$build_dir/tarnwick" | cut -d ' ' -f 1)" \
        "$(jq -r '.packages[0] | "\(.name) \(.versionInfo) \(.checksums[0].checksumValue)"' "$scratch/bill")"
    expect_equal "loaded libraries" "$(readelf -d "$build_dir/tarnwick" | grep -c NEEDED)" \
        "$(jq '[.relationships[] | select(.relationshipType == "DYNAMIC_LINK")] | length' "$scratch/bill")"
    expect_equal "compiled in" "SPDXRef-libasio-dev SPDXRef-libfmt-dev SPDXRef-nlohmann-json3-dev" \
        "$(jq -r '[.relationships[] | select(.relationshipType == "STATIC_LINK").relatedSpdxElement] | sort | join(" ")' "$scratch/bill")"
    expect_equal "relations to what is not described" "[]" \
        "$(jq -c '[.packages[].SPDXID] as $known | [.relationships[].relatedSpdxElement] - $known' "$scratch/bill")"
    expect_equal "versions that differ from the installed ones" "" "$(jq -r '.packages[1:][] | "\(.name) \(.versionInfo)"' "$scratch/bill" |
        while read -r name installed; do [ "$(dpkg-query -W -f '${Version}\n' "$name" | head -n 1)" = "$installed" ] || echo "$name"; done)"
}

"$@"
