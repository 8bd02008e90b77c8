; A folder in the user's or the machine's PATH. NSIS keeps strings of 1,024 characters at most, and a PATH that went
; through one would be cut: it stays in memory of the system's, and only addresses of it pass through here.
;
; Both functions take the folder from $R0 and "user" or "machine" from $R1, and say in $R2 what they did:
; "yes", or "no" where nothing had to be done or could be. Other registers stay.

!define PATH_REG_SZ 1
!define PATH_REG_EXPAND_SZ 2
!define PATH_NOT_FOUND 2
; A variable of the environment has no more characters.
!define PATH_LONGEST 32760

; Sets $2 the registry's key, $3 the value's type, $4 its bytes, $5 its text in memory of its own, zeros behind it,
; $6 the same with a ";" before and behind, $7 where ";folder;" stands in that, $8 the lengths of folder and
; $9 of the text. $3 is 0 where there is nothing to work on.
!macro PathOpen
  StrCpy $3 0
  StrCpy $5 0
  StrCpy $6 0
  ; HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE, which are numbers with a sign to 64-bit programs.
  StrCpy $0 -2147483647
  StrCpy $1 "Environment"
  ${If} $R1 == "machine"
    StrCpy $0 -2147483646
    StrCpy $1 "SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
  ${EndIf}
  System::Call 'advapi32::RegOpenKeyExW(p r0, w r1, i 0, i 0x2011F, *p 0 r2) i.r0'
  ${If} $0 != 0
    StrCpy $2 0
  ${Else}
    System::Call 'advapi32::RegQueryValueExW(p r2, w "Path", p 0, *i 0 r3, p 0, *i 0 r4) i.r0'
    ${If} $0 = ${PATH_NOT_FOUND}
      StrCpy $3 ${PATH_REG_EXPAND_SZ}
      StrCpy $4 0
    ${ElseIf} $0 <> 0
    ${OrIf} $3 < ${PATH_REG_SZ}
    ${OrIf} $3 > ${PATH_REG_EXPAND_SZ}
      StrCpy $3 0
    ${EndIf}
    ${If} $3 <> 0
      StrLen $8 $R0
      IntOp $0 $8 * 2
      IntOp $0 $0 + $4
      IntOp $0 $0 + 16
      System::Call 'kernel32::GlobalAlloc(i 0x40, p r0) p.r5'
      System::Call 'kernel32::GlobalAlloc(i 0x40, p r0) p.r6'
      System::Call 'advapi32::RegQueryValueExW(p r2, w "Path", p 0, p 0, p r5, *i r4)'
      System::Call 'kernel32::lstrcpyW(p r6, w ";")'
      System::Call 'kernel32::lstrcatW(p r6, p r5)'
      System::Call 'kernel32::lstrcatW(p r6, w ";")'
      System::Call 'shlwapi::StrStrIW(p r6, w ";$R0;") p.r7'
      System::Call 'kernel32::lstrlenW(p r5) i.r9'
    ${EndIf}
  ${EndIf}
!macroend

; Writes the text at $5 back, or removes the value where nothing is left of it and it is the user's; tells the
; programs that run.
!macro PathWrite
  System::Call 'kernel32::lstrlenW(p r5) i.r0'
  ${If} $0 = 0
  ${AndIf} $R1 == "user"
    System::Call 'advapi32::RegDeleteValueW(p r2, w "Path") i.r1'
  ${Else}
    IntOp $0 $0 * 2
    IntOp $0 $0 + 2
    System::Call 'advapi32::RegSetValueExW(p r2, w "Path", i 0, i r3, p r5, i r0) i.r1'
  ${EndIf}
  ${If} $1 = 0
    StrCpy $R2 "yes"
    SendMessage ${HWND_BROADCAST} ${WM_SETTINGCHANGE} 0 "STR:Environment" /TIMEOUT=5000
  ${EndIf}
!macroend

!macro PathClose
  ${If} $5 != 0
    System::Call 'kernel32::GlobalFree(p r5)'
    System::Call 'kernel32::GlobalFree(p r6)'
  ${EndIf}
  ${If} $2 != 0
    System::Call 'advapi32::RegCloseKey(p r2)'
  ${EndIf}
!macroend

Function PathAdd
  System::Store S
  StrCpy $R2 "no"
  !insertmacro PathOpen
  IntOp $0 $8 + $9
  ; A folder with a ";" in its name would be two.
  System::Call 'shlwapi::StrChrW(w R0, i 59) p.r1'
  ${If} $3 <> 0
  ${AndIf} $7 == 0
  ${AndIf} $1 == 0
  ${AndIf} $0 < ${PATH_LONGEST}
    ${If} $9 > 0
      ; What ends in ";" does so afterwards: an empty entry would be the current folder to some.
      IntOp $1 $9 - 1
      IntOp $1 $1 * 2
      IntPtrOp $1 $1 + $5
      System::Call '*$1(&i2 .r0)'
      ${If} $0 = 59
        System::Call 'kernel32::lstrcatW(p r5, w "$R0;")'
      ${Else}
        System::Call 'kernel32::lstrcatW(p r5, w ";$R0")'
      ${EndIf}
    ${Else}
      System::Call 'kernel32::lstrcatW(p r5, w "$R0")'
    ${EndIf}
    !insertmacro PathWrite
  ${EndIf}
  !insertmacro PathClose
  Push $R2
  System::Store L
  Pop $R2
FunctionEnd

Function un.PathRemove
  System::Store S
  StrCpy $R2 "no"
  !insertmacro PathOpen
  ${If} $3 <> 0
  ${AndIf} $7 != 0
    ; From where in the text ($0, in characters), and how many ($1).
    IntPtrOp $0 $7 - $6
    IntOp $0 $0 / 2
    IntOp $1 $8 + 1
    IntOp $4 $0 + $8
    ${If} $4 >= $9
    ${AndIf} $0 > 0
      ; The last entry goes with the ";" before it.
      IntOp $0 $0 - 1
    ${EndIf}
    IntOp $4 $0 + $1
    ${If} $4 > $9
      StrCpy $4 $9
    ${EndIf}
    ; What follows moves there, the zero at its end included.
    IntOp $1 $9 - $4
    IntOp $1 $1 + 1
    IntOp $1 $1 * 2
    IntOp $0 $0 * 2
    IntPtrOp $0 $0 + $5
    IntOp $4 $4 * 2
    IntPtrOp $4 $4 + $5
    System::Call 'ntdll::memmove(p r0, p r4, p r1)'
    !insertmacro PathWrite
  ${EndIf}
  !insertmacro PathClose
  Push $R2
  System::Store L
  Pop $R2
FunctionEnd
