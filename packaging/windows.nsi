; The installer for Windows: makensis -D VERSION=... -D TREE=<folder> -D OUTPUT=<file> windows.nsi
; Silent: setup.exe /S [/D=C:\folder]   and   uninstall.exe /S
Target amd64-unicode
Name "vu_storage ${VERSION}"
OutFile "${OUTPUT}"
InstallDir "$PROGRAMFILES64\vu_storage"
InstallDirRegKey HKLM "Software\vu_storage" "Folder"
RequestExecutionLevel admin
SetCompressor /SOLID lzma
ManifestSupportedOS all

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "vu_storage"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "FileDescription" "Installer of vu_storage and stgctl"
VIAddVersionKey "CompanyName" "The vu_storage maintainers"
VIAddVersionKey "LegalCopyright" "The vu_storage maintainers"

!define UNINSTALL "Software\Microsoft\Windows\CurrentVersion\Uninstall\vu_storage"

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Section "vu_storage"
  SetRegView 64
  SetOutPath "$INSTDIR"
  File /r "${TREE}/*"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "Software\vu_storage" "Folder" "$INSTDIR"
  WriteRegStr HKLM "Software\vu_storage" "Version" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL}" "DisplayName" "vu_storage ${VERSION}"
  WriteRegStr HKLM "${UNINSTALL}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL}" "Publisher" "The vu_storage maintainers"
  WriteRegStr HKLM "${UNINSTALL}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL}" "NoRepair" 1
SectionEnd

; Only what was installed goes: a storage tree that somebody put into the folder stays.
Section "Uninstall"
  SetRegView 64
  RMDir /r "$INSTDIR\bin"
  RMDir /r "$INSTDIR\doc"
  RMDir /r "$INSTDIR\examples"
  RMDir /r "$INSTDIR\include"
  RMDir /r "$INSTDIR\lib"
  RMDir /r "$INSTDIR\licences"
  Delete "$INSTDIR\README.txt"
  Delete "$INSTDIR\vu_storage.spdx.json"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  DeleteRegKey HKLM "${UNINSTALL}"
  DeleteRegKey HKLM "Software\vu_storage"
SectionEnd
