#compdef stgctl
# zsh completion for stgctl; write it to a folder of $fpath as _stgctl
_stgctl() {
  local -a found
  found=("${(@f)$(stgctl complete -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}")
  case ${found[1]} in
  folders) _files -/ ;;
  files) _files ;;
  value) _message 'value' ;;
  *) compadd -- "${(@)found[2,-1]}" ;;
  esac
}
_stgctl "$@"
