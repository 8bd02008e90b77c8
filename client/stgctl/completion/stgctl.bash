# bash completion for stgctl; load it with: source <(stgctl completion bash)
_stgctl_tree() {
  local i value
  tree=()
  for ((i = 1; i + 1 < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
    --root|--storage|--layout|--area|--owner)
      value=${COMP_WORDS[i+1]}
      [[ $value != = ]] || value=${COMP_WORDS[i+2]}
      tree+=("${COMP_WORDS[i]}" "${value/#\~\//$HOME/}") ;;
    esac
  done
}
# Readline replaces what follows the last character at which it breaks words.
_stgctl_found() {
  local tree word cut='' breaks=${COMP_WORDBREAKS//[^@:=]/}
  word=${COMP_LINE:0:COMP_POINT}
  word=${word##*[[:blank:]]}
  [[ $word != --*=* ]] || word=${word#*=}
  _stgctl_tree
  mapfile -t COMPREPLY < <(stgctl complete "$1" "$word" "${tree[@]}" 2>/dev/null)
  [[ -z $breaks ]] || cut=${word%"${word##*[$breaks]}"}
  COMPREPLY=("${COMPREPLY[@]#"$cut"}")
  compopt -o filenames 2>/dev/null
}
# A twin of the function for zsh: the same tables of cases.
_stgctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} place='' words='' next i
  COMPREPLY=()
  if [[ $cur == = ]]; then
    cur=''
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}
  fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    next="${place:+$place }${COMP_WORDS[i]}"
    case $next in
    %PATHS%) place=$next ;;
    esac
  done
  case "$place|$prev" in
%VALUES%  esac
  if [[ $cur != -* ]]; then
    case $place in
    %NAMES%) _stgctl_found names; return ;;
    %OWNERS%) _stgctl_found owners; return ;;
    esac
  fi
  case $place in
%PLACES%  esac
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -o default -F _stgctl stgctl
