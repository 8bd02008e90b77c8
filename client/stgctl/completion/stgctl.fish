# fish completion for stgctl; load it with: stgctl completion fish | source
function __stgctl_found
  set -l words (commandline -opc)
  set -l current (commandline -ct)
  set -l found (stgctl complete --described -- $words[2..-1] "$current" 2>/dev/null)
  switch "$found[1]"
    case folders
      __fish_complete_directories $current
    case files
      __fish_complete_path $current
    case '*'
      string join \n -- $found[2..-1]
  end
end
complete -c stgctl -f -a '(__stgctl_found)'
