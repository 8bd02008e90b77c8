# PowerShell completion for stgctl; load it with: stgctl completion powershell | Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $places = @{
%PLACES%  }
  $values = @{
%VALUES%  }
  $asked = @{
%ASKED%  }
  $place = ''
  $previous = ''
  $ofTree = '--root', '--storage', '--layout', '--area', '--owner'
  $tree = @()
  foreach ($element in ($commandAst.CommandElements | Select-Object -Skip 1)) {
    $word = $element.ToString().Trim("'", '"')
    $isLast = $element.Extent.EndOffset -ge $cursorPosition
    if ($isLast -and $element.ToString() -eq $wordToComplete) { break }
    $next = "$place $word".Trim()
    if ($places.ContainsKey($next)) { $place = $next }
    if ($previous -in $ofTree) { $tree += $previous, $word }
    $previous = $word
  }
  $words = $places[$place] -split ' '
  $what = if ($wordToComplete -notlike '-*') { $asked[$place] }
  foreach ($key in "$place|$previous", "*|$previous") {
    if ($values.ContainsKey($key)) { $words = $values[$key] -split ' '; $what = $null; break }
    if ($asked.ContainsKey($key)) { $what = $asked[$key]; break }
  }
  $begin = $wordToComplete.Trim("'", '"')
  if ($what) { $words = & stgctl complete $what $begin @tree 2>$null }
  $words | Where-Object { $_ -like "$begin*" } | ForEach-Object {
    $text = $_
    if ($_ -match '[\s"`$(){};,|&<>#'']') { $text = "'" + ($_ -replace "'", "''") + "'" }
    [System.Management.Automation.CompletionResult]::new($text, $_, 'ParameterValue', $_)
  }
}
