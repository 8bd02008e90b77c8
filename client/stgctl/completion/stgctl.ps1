# PowerShell completion for stgctl; load it with: stgctl completion powershell | Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $before = @()
  foreach ($element in ($commandAst.CommandElements | Select-Object -Skip 1)) {
    $isLast = $element.Extent.EndOffset -ge $cursorPosition
    if ($isLast -and $element.ToString() -eq $wordToComplete) { break }
    $before += $element.ToString().Trim("'", '"')
  }
  $current = $wordToComplete.Trim("'", '"')
  # An empty argument would get lost.
  $line = if ($current) { @('--') + $before + $current } else { @('--new-word', '--') + $before }
  & stgctl complete @line 2>$null | Select-Object -Skip 1 | ForEach-Object {
    $text = $_
    # PowerShell also takes typographic quotes as quotes; the four single ones end such a text.
    if ($_ -match '^@|[\s"`$(){};,|&<>#''\u2018-\u201E]') {
      $text = "'" + ($_ -replace '[''\u2018-\u201B]', '$&$&') + "'"
    }
    [System.Management.Automation.CompletionResult]::new($text, $_, 'ParameterValue', $_)
  }
}
