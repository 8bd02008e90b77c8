; The installer for Windows:
;   makensis -D VERSION=... -D TREE=<folder> -D LIST=<windows_files.py's> -D OUTPUT=<file> [-D SIGN=<command>] windows.nsi
; setup.exe [/AllUsers | /CurrentUser] [/Path] [/S] [/D=C:\folder]   and   uninstall.exe [/S]
; The command SIGN gets the path of each file to sign: the uninstaller, then the installer.
Unicode true
Target amd64-unicode
Name "vu_storage ${VERSION}"
OutFile "${OUTPUT}"
; An installation for one user needs no administrator; only the choice "all users" starts the installer as one.
RequestExecutionLevel user
SetCompressor /SOLID lzma
ManifestSupportedOS all
ManifestDPIAware true
!ifdef SIGN
  !uninstfinalize '${SIGN} "%1"' = 0
  !finalize '${SIGN} "%1"' = 0
!endif

!include LogicLib.nsh
!include FileFunc.nsh
!include WinMessages.nsh
!include WordFunc.nsh
!include nsDialogs.nsh
!include windows-path.nsh
; The list of files to install and to remove. Other files in the folder belong to the user.
!include "${LIST}"

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "vu_storage"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "FileDescription" "Installer of vu_storage and stgctl"
VIAddVersionKey "OriginalFilename" "vu_storage-${VERSION}-win64-setup.exe"
VIAddVersionKey "CompanyName" "The vu_storage maintainers"
VIAddVersionKey "LegalCopyright" "The vu_storage maintainers"

!define KEY "Software\vu_storage"
!define UNINSTALL "Software\Microsoft\Windows\CurrentVersion\Uninstall\vu_storage"

; "user" or "machine".
Var whose
; "yes" when PATH gets the folder bin.
Var inPath
; Controls of the page of choices.
Var forUser
Var forMachine
Var path

Page custom ShowChoices TakeChoices
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; ---- one user or all users ----------------------------------------------------------------------------

; Selects the registry and the Start menu of $whose.
!macro WorkFor
  SetRegView 64
  ${If} $whose == "machine"
    SetShellVarContext all
  ${Else}
    SetShellVarContext current
  ${EndIf}
!macroend

; Proposes the folder of the last installation, else the usual folder for programs.
Function ProposeFolder
  !insertmacro WorkFor
  ReadRegStr $INSTDIR SHCTX "${KEY}" "Folder"
  ${If} $INSTDIR == ""
    ${If} $whose == "machine"
      StrCpy $INSTDIR "$PROGRAMFILES64\vu_storage"
    ${Else}
      StrCpy $INSTDIR "$LOCALAPPDATA\Programs\vu_storage"
    ${EndIf}
  ${EndIf}
FunctionEnd

Function .onInit
  StrCpy $whose "user"
  StrCpy $inPath "no"
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/AllUsers" $1
  ${IfNot} ${Errors}
    StrCpy $whose "machine"
  ${EndIf}
  ClearErrors
  ${GetOptions} $0 "/Path" $1
  ${IfNot} ${Errors}
    StrCpy $inPath "yes"
  ${EndIf}
  !insertmacro WorkFor
  ${If} $whose == "machine"
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
      MessageBox MB_OK|MB_ICONSTOP "An installation for all users needs an administrator. Start setup again as an administrator, or without /AllUsers." /SD IDOK
      SetErrorLevel 740
      Abort
    ${EndIf}
  ${EndIf}
  ; Not empty: the option /D=folder has set it.
  ${If} $INSTDIR == ""
    Call ProposeFolder
  ${EndIf}
FunctionEnd

; ---- the page of choices ------------------------------------------------------------------------------

Function ShowChoices
  nsDialogs::Create 1018
  Pop $0
  ${NSD_CreateRadioButton} 0 0 100% 12u "Install for &me; no administrator is needed"
  Pop $forUser
  ${NSD_CreateRadioButton} 0 16u 100% 12u "Install for &all users of this computer; needs an administrator"
  Pop $forMachine
  ${NSD_CreateCheckBox} 0 40u 100% 12u "Add stgctl to &PATH, so that new command prompts find it"
  Pop $path
  ${If} $whose == "machine"
    ${NSD_Check} $forMachine
  ${Else}
    ${NSD_Check} $forUser
  ${EndIf}
  ${If} $inPath == "yes"
    ${NSD_Check} $path
  ${EndIf}
  nsDialogs::Show
FunctionEnd

Function TakeChoices
  StrCpy $1 $whose
  StrCpy $whose "user"
  StrCpy $inPath "no"
  ${NSD_GetState} $path $0
  ${If} $0 = ${BST_CHECKED}
    StrCpy $inPath "yes"
  ${EndIf}
  ${NSD_GetState} $forMachine $0
  ${If} $0 = ${BST_CHECKED}
    StrCpy $whose "machine"
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
      ; Starts the installer again as an administrator; Windows asks the user for permission.
      StrCpy $0 "/AllUsers"
      ${If} $inPath == "yes"
        StrCpy $0 "/AllUsers /Path"
      ${EndIf}
      ClearErrors
      ExecShell "runas" "$EXEPATH" $0
      ${IfNot} ${Errors}
        Quit
      ${EndIf}
      StrCpy $whose $1
      Abort
    ${EndIf}
  ${EndIf}
  ${If} $whose != $1
    Call ProposeFolder
  ${EndIf}
FunctionEnd

; ---- what is installed --------------------------------------------------------------------------------

; Removes an older version first, so that none of its files remains.
Function RemoveOlder
  ReadRegStr $0 SHCTX "${KEY}" "Folder"
  ${If} $0 != ""
  ${AndIf} ${FileExists} "$0\uninstall.exe"
    ; With _?=folder the uninstaller runs in place, so that ExecWait can wait for it.
    ExecWait '"$0\uninstall.exe" /S _?=$0' $1
    Delete "$0\uninstall.exe"
    RMDir "$0"
  ${EndIf}
FunctionEnd

Section "vu_storage"
  !insertmacro WorkFor
  ReadRegStr $0 SHCTX "${KEY}" "Path"
  ${If} $0 == "yes"
    StrCpy $inPath "yes"
  ${EndIf}
  Call RemoveOlder
  !insertmacro InstallFiles "${TREE}"
  SetOutPath "$INSTDIR"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr SHCTX "${KEY}" "Folder" "$INSTDIR"
  WriteRegStr SHCTX "${KEY}" "Version" "${VERSION}"
  WriteRegStr SHCTX "${UNINSTALL}" "DisplayName" "vu_storage ${VERSION}"
  WriteRegStr SHCTX "${UNINSTALL}" "DisplayVersion" "${VERSION}"
  WriteRegStr SHCTX "${UNINSTALL}" "DisplayIcon" "$INSTDIR\bin\stgctl.exe"
  WriteRegStr SHCTX "${UNINSTALL}" "InstallLocation" "$INSTDIR"
  WriteRegStr SHCTX "${UNINSTALL}" "Publisher" "The vu_storage maintainers"
  WriteRegStr SHCTX "${UNINSTALL}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr SHCTX "${UNINSTALL}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD SHCTX "${UNINSTALL}" "NoModify" 1
  WriteRegDWORD SHCTX "${UNINSTALL}" "NoRepair" 1
  CreateDirectory "$SMPROGRAMS\vu_storage"
  CreateShortcut "$SMPROGRAMS\vu_storage\Documentation of vu_storage.lnk" "$INSTDIR\doc\index.html"
  ${If} $inPath == "yes"
    StrCpy $R0 "$INSTDIR\bin"
    StrCpy $R1 $whose
    Call PathAdd
    ; The uninstaller removes the entry of PATH only when this installation added it.
    WriteRegStr SHCTX "${KEY}" "Path" $R2
  ${EndIf}
SectionEnd

; ---- uninstallation -----------------------------------------------------------------------------------

; The registry entry with this folder shows whether the installation is for one user or for all users.
Function un.onInit
  SetRegView 64
  StrCpy $whose "user"
  ReadRegStr $0 HKCU "${KEY}" "Folder"
  ReadRegStr $1 HKLM "${KEY}" "Folder"
  ${If} $0 != $INSTDIR
  ${AndIf} $1 == $INSTDIR
    StrCpy $whose "machine"
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
      ${IfNot} ${Silent}
        ExecShell "runas" "$INSTDIR\uninstall.exe"
      ${EndIf}
      SetErrorLevel 740
      Quit
    ${EndIf}
  ${EndIf}
  !insertmacro WorkFor
FunctionEnd

Section "Uninstall"
  !insertmacro WorkFor
  ReadRegStr $0 SHCTX "${KEY}" "Path"
  ${If} $0 == "yes"
    StrCpy $R0 "$INSTDIR\bin"
    StrCpy $R1 $whose
    Call un.PathRemove
  ${EndIf}
  Delete "$SMPROGRAMS\vu_storage\Documentation of vu_storage.lnk"
  RMDir "$SMPROGRAMS\vu_storage"
  SetOutPath "$TEMP"
  !insertmacro RemoveFiles
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  DeleteRegKey SHCTX "${UNINSTALL}"
  ${If} $whose == "user"
    ; Without other installed programs these did not exist before; each is removed only when it is empty.
    RMDir "$LOCALAPPDATA\Programs"
    DeleteRegKey /ifempty HKCU "Software\Microsoft\Windows\CurrentVersion\Uninstall"
  ${EndIf}
  DeleteRegKey SHCTX "${KEY}"
SectionEnd
