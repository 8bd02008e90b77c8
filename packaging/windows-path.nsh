; Adds a folder to the user's or the machine's PATH, or removes it. A string of NSIS has at most 1,024 characters and
; would truncate a long PATH. Therefore the text stays in memory that Windows allocates; NSIS only handles addresses.
;
; Both functions read the folder from $R0 and "user" or "machine" from $R1. $R2 is "yes" when PATH was changed, and
; "no" when no change was necessary or possible. Other registers do not change.

!define PATH_REG_SZ 1
!define PATH_REG_EXPAND_SZ 2
!define PATH_NOT_FOUND 2
; The most characters of an environment variable.
!define PATH_LONGEST 32760

; Reads PATH and sets:
;   $2  handle of the registry key
;   $3  type of the value; 0 when PATH cannot be read or has another type than text
;   $4  size of the value in bytes
;   $5  address of the text, in allocated memory with zeros after it
;   $6  address of the text with a ";" before and after it
;   $7  address of ";folder;" in the text at $6, or 0
;   $8  length of the folder, $9 length of the text, in characters
!macro PathOpen
  StrCpy $3 0
  StrCpy $5 0
  StrCpy $6 0
  ; HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE; 64-bit programs extend their sign.
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

; Writes the text at $5 to the registry and notifies running programs. An empty PATH of the user is deleted instead.
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
  ; A folder with a ";" in its name would become two entries.
  System::Call 'shlwapi::StrChrW(w R0, i 59) p.r1'
  ${If} $3 <> 0
  ${AndIf} $7 == 0
  ${AndIf} $1 == 0
  ${AndIf} $0 < ${PATH_LONGEST}
    ${If} $9 > 0
      ; Keeps a ";" at the end, and adds no empty entry: some programs take that for the current folder.
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
    ; $0: position of the entry in the text, $1: length to remove, in characters.
    IntPtrOp $0 $7 - $6
    IntOp $0 $0 / 2
    IntOp $1 $8 + 1
    IntOp $4 $0 + $8
    ${If} $4 >= $9
    ${AndIf} $0 > 0
      ; The last entry is removed together with the ";" before it.
      IntOp $0 $0 - 1
    ${EndIf}
    IntOp $4 $0 + $1
    ${If} $4 > $9
      StrCpy $4 $9
    ${EndIf}
    ; Moves the rest of the text there, including its final zero.
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
