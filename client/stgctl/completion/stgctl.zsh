#compdef stgctl
# zsh completion for stgctl; write it to a folder of $fpath as _stgctl
_stgctl_found() {
  local -a tree found
  local i
  for ((i = 2; i < CURRENT; i++)); do
    case ${words[i]} in
    --root|--storage|--layout|--area|--owner)
      if ((i + 1 < CURRENT)); then
        tree+=("${words[i]}" "${${(Q)words[i+1]}/#\~\//$HOME/}")
      fi ;;
    --root=*|--storage=*|--layout=*|--area=*|--owner=*) tree+=("${(Q)words[i]}") ;;
    esac
  done
  found=("${(@f)$(stgctl complete $1 "${(Q)PREFIX}" "${tree[@]}" 2>/dev/null)}")
  [[ -n ${found[1]} ]] && compadd -a found
}
# A twin of the function for bash: the same tables of cases.
_stgctl() {
  local place='' next i
  for ((i = 2; i < CURRENT; i++)); do
    next="${place:+$place }${words[i]}"
    case $next in
    %PATHS%) place=$next ;;
    esac
  done
  case "$place|${words[CURRENT-1]}" in
%VALUES%  esac
  if [[ $PREFIX != -* ]]; then
    case $place in
    %NAMES%) _stgctl_found names; return ;;
    %OWNERS%) _stgctl_found owners; return ;;
    esac
  fi
  case $place in
%PLACES%  esac
  _files
}
_stgctl "$@"
