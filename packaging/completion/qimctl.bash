# Completion of qimctl for bash; what may follow is in qimctl/words beside the folders of the shells.

_qimctl_words=$(dirname "${BASH_SOURCE[0]}")/../../qimctl/words

_qimctl() {
  local cur words cword word
  _get_comp_words_by_ref -n : cur words cword || return
  COMPREPLY=()
  while IFS=$'\t' read -r word _; do
    case $word in
      :files) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
      :folders) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
      "$cur"*) COMPREPLY+=("$word") ;;
    esac
  done < <(sh "$_qimctl_words" "${words[@]:1:cword}")
  __ltrim_colon_completions "$cur"
}

complete -F _qimctl qimctl
