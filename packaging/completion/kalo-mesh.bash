# bash completion for kalo-mesh and kalo-patch. What can stand next the programs say themselves, so
# that this file never lags behind them.

_kalo_words() {
  "${COMP_WORDS[@]:0:COMP_CWORD}" --help 2>/dev/null |
    sed -n -e 's/^  \(-[^ ]*\).*/\1/p' -e '/^Subcommands:/,$s/^  \([a-z][a-z-]*\) .*/\1/p' | tr , '\n'
}

_kalo() {
  local current=${COMP_WORDS[COMP_CWORD]}
  mapfile -t COMPREPLY < <(compgen -W "$(_kalo_words)" -- "$current")
}

complete -o bashdefault -o default -F _kalo kalo-mesh kalo-patch
