# Completion of ktctl's commands and options for bash. What there is, ktctl itself tells.

# The commands, of one word or of a group's and their own.
_ktctl_commands() {
  ktctl --help 2>/dev/null | sed -nE 's/^  ([a-z][a-z-]*( [a-z][a-z-]*)?) ([[A-Z ].*)$/\1/p'
}

# The command among some words: two of them, or else one.
_ktctl_command() {
  local name
  for name in "${1-} ${2-}" "${1-}"; do
    if grep -qxF -- "$name" <<<"$commands"; then
      echo "$name"
      return
    fi
  done
}

# Prints what may follow the words in front: options, commands, or nothing.
_ktctl_choices() {
  local previous=$1 word=$2 command help group name
  shift 2
  command=$(_ktctl_command "$@")
  # shellcheck disable=SC2086 # a command may have two words
  help=$(ktctl $command --help 2>/dev/null | sed -nE 's/^  (--[a-z0-9-]+ [A-Z]*).*/\1/p')
  if [[ $'\n'$help == *$'\n'"$previous "[A-Z]* ]]; then
    return # its argument
  elif [[ $word == -* ]]; then
    printf '%s\n' "$help" --help | cut -d ' ' -f 1
  elif (($# == 0)); then
    cut -d ' ' -f 1 <<<"$commands"
  elif (($# == 1)); then
    while read -r group name; do
      [[ $group != "$1" ]] || echo "$name"
    done <<<"$commands"
  fi
}

_ktctl() {
  local word=${COMP_WORDS[COMP_CWORD]} words=() commands i
  commands=$(_ktctl_commands)
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --file | --lock-timeout) ((++i)) ;; # may stand in front of the command
      -*) ;;
      *) words+=("${COMP_WORDS[i]}") ;;
    esac
  done
  mapfile -t COMPREPLY < <(compgen -W \
    "$(_ktctl_choices "${COMP_WORDS[COMP_CWORD - 1]}" "$word" "${words[@]}")" -- "$word" | sort -u)
}

# Where there is no choice of ktctl's own, a file may be wanted.
complete -o default -F _ktctl ktctl
