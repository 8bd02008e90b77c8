# bash completion for stgctl; load it with: source <(stgctl completion bash)
_stgctl() {
  local word=${COMP_LINE:0:COMP_POINT} kind cut='' breaks=${COMP_WORDBREAKS//[^@:=]/}
  word=${word##*[[:blank:]]}
  mapfile -t COMPREPLY < <(stgctl complete -- "${COMP_WORDS[@]:1:COMP_CWORD-1}" "$word" 2>/dev/null)
  kind=${COMPREPLY[0]}
  # Readline replaces what follows the last character at which it breaks words.
  [[ -z $breaks ]] || cut=${word%"${word##*[$breaks]}"}
  COMPREPLY=("${COMPREPLY[@]:1}")
  COMPREPLY=("${COMPREPLY[@]#"$cut"}")
  case $kind in
  names | owners) compopt -o filenames 2>/dev/null ;;
  folders)
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -d -- "${word#"$cut"}")
    ;;
  esac
}
complete -o default -F _stgctl stgctl
