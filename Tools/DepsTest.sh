#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

saysNothingWhenNothingIsMissing() {
   file list <<<'bash   # every Debian has it'
   run "$tools/deps" --check list
   passes
   saysNothing
}

namesOnlyWhatIsMissingInOneLineToType() {
   printf '%s\n' '# a comment' 'bash # there' 'no-such-package-a # not there' 'no-such-package-b' | file list
   run "$tools/deps" --check list
   fails
   says "apt-get update && apt-get install -y --no-install-recommends no-such-package-a no-such-package-b"
   saysNot "bash"
}

takesAPackageThatAnotherOneProvides() {
   # awk is no package of its own on Debian; one of several brings it.
   file list <<<'awk'
   run "$tools/deps" --check list
   passes
   saysNothing
}

refusesAListWithoutPackages() {
   file list <<<'# nothing'
   run "$tools/deps" --check list
   fails
   says "list names no package"
}

runTest "$@"
