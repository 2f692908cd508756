# bash completion for kalo-mesh and kalo-patch. What can stand next the programs say themselves, so
# that this file never lags behind them.

# Only the program and its commands are called, never what else was typed: an option that waits for its
# value would take "--help" for it, and the command would run.
_kalo_words() {
  local words=("${COMP_WORDS[0]}") word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word =~ ^[a-z][a-z-]*$ && ${#words[@]} -lt 3 ]] || break
    words+=("$word")
  done
  "${words[@]}" --help 2>/dev/null </dev/null |
    sed -n -e 's/^  \(-[^ ]*\).*/\1/p' -e '/^Subcommands:/,$s/^  \([a-z][a-z-]*\) .*/\1/p' | tr , '\n'
}

_kalo() {
  local current=${COMP_WORDS[COMP_CWORD]}
  mapfile -t COMPREPLY < <(compgen -W "$(_kalo_words)" -- "$current")
}

complete -o bashdefault -o default -F _kalo kalo-mesh kalo-patch
