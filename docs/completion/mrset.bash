# bash completion for mrset and mrset-convert.

_mrset() {
  local cur prev
  cur=${COMP_WORDS[COMP_CWORD]}
  prev=${COMP_WORDS[COMP_CWORD-1]}
  case $prev in
    -f | --format)
      mapfile -t COMPREPLY < <(compgen -W "text json html" -- "$cur")
      return
      ;;
    -d | --data)
      mapfile -t COMPREPLY < <(compgen -f -X '!*.@(json|db|sqlite|sqlite3)' -- "$cur")
      compopt -o filenames 2>/dev/null
      return
      ;;
    -o | --output)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      compopt -o filenames 2>/dev/null
      return
      ;;
    -e | --execute | --cmd | --width)
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "-d --data -e --execute -f --format -o --output
      --width --no-save --bail --cmd --batch --interactive --help --version" -- "$cur")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -f -X '!*.mrs' -- "$cur"; compgen -d -- "$cur")
  compopt -o filenames 2>/dev/null
}

_mrset_convert() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "--help --version" -- "$cur")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  compopt -o filenames 2>/dev/null
}

complete -F _mrset mrset
complete -F _mrset_convert mrset-convert
