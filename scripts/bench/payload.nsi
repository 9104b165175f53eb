; The comparison installer: the same payload, stored uncompressed, installed
; silently with /S /D=<folder>, and an uninstaller that removes the folder.
; makensis -DPAYLOAD=<folder> -DOUTFILE=<exe> payload.nsi
Unicode true
SetCompress off
RequestExecutionLevel admin
Name "Bench Payload"
OutFile "${OUTFILE}"
InstallDir "C:\bench-nsis"
ShowInstDetails nevershow
ShowUninstDetails nevershow

Section "Payload"
  SetOutPath "$INSTDIR"
  File /r "${PAYLOAD}/*"
  WriteUninstaller "$INSTDIR\uninst.exe"
SectionEnd

Section "Uninstall"
  RMDir /r "$INSTDIR"
SectionEnd
