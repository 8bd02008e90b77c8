# fish completion for stgctl; load it with: stgctl completion fish | source
function __stgctl_at
  set -l place ''
  for word in (commandline -opc)[2..-1]
    set -l next (string trim -- "$place $word")
    contains -- "$next"%PATHS%; and set place $next
  end
  test "$place" = "$argv[1]"
end
function __stgctl_found
  set -l words (commandline -opc)
  set -l tree
  for i in (seq 2 (count $words))
    switch $words[$i]
      case --root --storage --layout --area --owner
        if test $i -lt (count $words)
          set -a tree $words[$i] (string replace -r '^~/' "$HOME/" -- $words[(math $i + 1)])
        end
      case '--root=*' '--storage=*' '--layout=*' '--area=*' '--owner=*'
        set -a tree $words[$i]
    end
  end
  set -l begin (string replace -r '^--[a-z-]+=' '' -- (commandline -ct))
  stgctl complete $argv[1] "$begin" $tree 2>/dev/null
end
%LINES%