; The installer, which is also what an agent downloads and starts when its user accepts an update: in the place of an
; older version it asks nothing. The new files are complete on the disk before the running ones are stopped, and
; they take their places in one step each, so that a failure leaves the installed version working.
;
; Switches: /S silent; /SERVICE, /NOSERVICE and /NOSTARTMENU choose, in place of what is installed already;
; /D=FOLDER, last and without quotes. Exit status: 0 done, 1 cancelled, 2 failed, or done but for the service.
;
; Given by make-package: VERSION, AGENT (path of the executable), OUT (path of the installer), SOURCE (path of the
; source tree), SIGN (a command that signs the file named behind it, or nothing).

Unicode true
Target amd64-unicode
ManifestDPIAware true
ManifestSupportedOS Win10
RequestExecutionLevel admin
SetCompressor /SOLID lzma
SetDateSave off
CRCCheck force
AllowSkipFiles off

!define PRODUCT_NAME "Maravek Remote Support"
!define AGENT_FILE "VantelinkAgent.exe"
!define UNINSTALLER_FILE "Uninstall.exe"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\VantelinkAgent"
!define SHORTCUT "$SMPROGRAMS\${PRODUCT_NAME}.lnk"
!define RUN_KEY "Software\Microsoft\Windows\CurrentVersion\Run"

!include "MUI2.nsh"
!include "LogicLib.nsh"
!include "FileFunc.nsh"
!include "Sections.nsh"
!include "WordFunc.nsh"

Name "$(TextProduct)"
OutFile "${OUT}"
InstallDir "$PROGRAMFILES64\Maravek\Vantelink"
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation"
BrandingText "${PRODUCT_NAME} ${VERSION}"
ShowInstDetails nevershow
ShowUninstDetails nevershow
!define MUI_ICON "${SOURCE}/agent/resources/icon.ico"
!define MUI_UNICON "${SOURCE}/agent/resources/icon.ico"

Var IsUpdate ; 1 where an older version is installed
Var ServiceRan ; 1 if the service was running when the files were replaced; empty while nothing was stopped

!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_WELCOME
!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_COMPONENTS
!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!define MUI_PAGE_CUSTOMFUNCTION_PRE SkipInUpdate
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
; Windows' own display language decides; English where it is neither.
!insertmacro MUI_LANGUAGE "English"
!insertmacro MUI_LANGUAGE "Icelandic"
!include "texts.nsh"

VIProductVersion "${VERSION_RECORD}"
!macro VERSION_TEXTS LANGUAGE
  VIAddVersionKey /LANG=${LANGUAGE} "ProductName" "Vantelink"
  VIAddVersionKey /LANG=${LANGUAGE} "CompanyName" "Maravek"
  VIAddVersionKey /LANG=${LANGUAGE} "FileDescription" "${PRODUCT_NAME}"
  VIAddVersionKey /LANG=${LANGUAGE} "FileVersion" "${VERSION}"
  VIAddVersionKey /LANG=${LANGUAGE} "ProductVersion" "${VERSION}"
  VIAddVersionKey /LANG=${LANGUAGE} "LegalCopyright" "Maravek"
!macroend
!insertmacro VERSION_TEXTS ${LANG_ENGLISH}
!insertmacro VERSION_TEXTS ${LANG_ICELANDIC}

!if "${SIGN}" != ""
  !uninstfinalize '${SIGN} "%1"'
!endif

!include "service.nsh"
!include "processes.nsh"
!insertmacro SERVICE_FUNCTIONS ""
!insertmacro SERVICE_FUNCTIONS "un."
!insertmacro SERVICE_START_FUNCTIONS
!insertmacro PROCESS_FUNCTIONS ""
!insertmacro PROCESS_FUNCTIONS "un."
!insertmacro PROCESS_START_FUNCTIONS

!macro SHOW_AND_ABORT TEXT
  MessageBox MB_OK|MB_ICONSTOP "${TEXT}" /SD IDOK
  SetErrorLevel 2
  Abort "${TEXT}"
!macroend

; Two at once would take each other's files away. The mutex goes with the process.
!macro ONE_AT_A_TIME
  System::Call 'kernel32::CreateMutexW(p 0, i 1, w "Global\VantelinkSetup") p ?e'
  Pop $0
  ${If} $0 = 183 ; it exists
    !insertmacro SHOW_AND_ABORT "$(TextAlreadyRunning)"
  ${EndIf}
!macroend

Function SkipInUpdate
  ${If} $IsUpdate == 1
    Abort
  ${EndIf}
FunctionEnd

; Puts the file named $0 plus ".new" in the place of $0, in one step. Somebody who only reads it, a virus scanner for
; instance, is given ten seconds. $0 becomes 0 when it did not work.
Function TakePlace
  Push $1
  Push $2
  StrCpy $1 $0
  ${For} $2 1 50
    System::Call 'kernel32::MoveFileExW(w "$1.new", w r1, i 9) i .r0' ; replacing, and on the disk before it returns
    ${If} $0 != 0
      ${ExitFor}
    ${EndIf}
    Sleep 200
  ${Next}
  Pop $2
  Pop $1
FunctionEnd

Function StopRunning
  Call QueryService
  StrCpy $ServiceRan 0
  ${If} $ServiceState != 0
  ${AndIf} $ServiceState != ${SERVICE_STOPPED}
    StrCpy $ServiceRan 1
    Call StopService
  ${EndIf}
  Call EndAgents
FunctionEnd

; The service starts the agent itself, unless it cannot be started, being disabled for instance.
Function StartAgain
  StrCpy $0 0
  ${If} $ServiceRan == 1
    Call StartService
  ${EndIf}
  ${If} $0 == 0
    Call StartAgent
  ${EndIf}
FunctionEnd

; The agent that began an update has ended. Where nothing was stopped yet, only a running service has started it again.
Function StartEndedAgent
  ${If} $IsUpdate == 1
  ${AndIf} $ServiceRan == ""
    Call QueryService
    ${If} $ServiceState == 0
    ${OrIf} $ServiceState == ${SERVICE_STOPPED}
      Call StartAgent
    ${EndIf}
    StrCpy $IsUpdate 0 ; once is enough
  ${EndIf}
FunctionEnd

; Nothing is left of a new installation that failed, and all of an old one. A file that can be made but not written
; whole comes here by NSIS's own doing.
Function .onInstFailed
  Call StartEndedAgent
  Delete "$INSTDIR\${AGENT_FILE}.new"
  Delete "$INSTDIR\${UNINSTALLER_FILE}.new"
  SetOutPath "$TEMP"
  RMDir "$INSTDIR"
  RMDir "$PROGRAMFILES64\Maravek"
  SetErrorLevel 2
FunctionEnd

Section "$(TextAgent)" SectionAgent
  SectionIn RO
  SetShellVarContext all
  SetOutPath "$INSTDIR"
  SetOverwrite try
  ClearErrors
  File "/oname=${AGENT_FILE}.new" "${AGENT}"
  ${IfNot} ${Errors}
    WriteUninstaller "$INSTDIR\${UNINSTALLER_FILE}.new"
  ${EndIf}
  ${If} ${Errors}
    Call StartEndedAgent
    !insertmacro SHOW_AND_ABORT "$(TextNoSpace)"
  ${EndIf}

  Call StopRunning
  StrCpy $0 "$INSTDIR\${AGENT_FILE}"
  Call TakePlace
  ${If} $0 == 0
    Call StartAgain
    !insertmacro SHOW_AND_ABORT "$(TextInUse)"
  ${EndIf}
  StrCpy $0 "$INSTDIR\${UNINSTALLER_FILE}"
  Call TakePlace
  Delete "$INSTDIR\${UNINSTALLER_FILE}.new" ; an older uninstaller does as well

  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT_NAME}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\${AGENT_FILE}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Maravek"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER_FILE}"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER_FILE}" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" ${AGENT_KILOBYTES}
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Section "$(TextStartMenu)" SectionStartMenu
  CreateShortCut "${SHORTCUT}" "$INSTDIR\${AGENT_FILE}"
SectionEnd

Section /o "$(TextService)" SectionService
  Call ConfigureService
  StrCpy $ServiceRan 1
SectionEnd

; What was deselected goes, and the rest starts.
Section "-finish"
  ${IfNot} ${SectionIsSelected} ${SectionStartMenu}
    Delete "${SHORTCUT}"
  ${EndIf}
  ${IfNot} ${SectionIsSelected} ${SectionService}
    Call RemoveService
    StrCpy $ServiceRan 0
  ${EndIf}
  Call StartAgain
SectionEnd

!insertmacro MUI_FUNCTION_DESCRIPTION_BEGIN
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionAgent} "$(TextAgentHelp)"
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionStartMenu} "$(TextStartMenuHelp)"
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionService} "$(TextServiceHelp)"
!insertmacro MUI_FUNCTION_DESCRIPTION_END

; The parts that are installed already are the choice to begin with.
Function SelectSections
  SetShellVarContext all
  ReadRegStr $0 HKLM "${UNINSTALL_KEY}" "DisplayVersion"
  ${If} $0 != ""
  ${AndIfNot} ${FileExists} "${SHORTCUT}"
    !insertmacro UnselectSection ${SectionStartMenu}
  ${EndIf}
  Call QueryService
  ${If} $ServiceState != 0
    !insertmacro SelectSection ${SectionService}
  ${EndIf}
  ${GetParameters} $1
  ClearErrors
  ${GetOptions} $1 "/NOSTARTMENU" $2
  ${IfNot} ${Errors}
    !insertmacro UnselectSection ${SectionStartMenu}
  ${EndIf}
  ClearErrors
  ${GetOptions} $1 "/SERVICE" $2
  ${IfNot} ${Errors}
    !insertmacro SelectSection ${SectionService}
  ${EndIf}
  ClearErrors
  ${GetOptions} $1 "/NOSERVICE" $2
  ${IfNot} ${Errors}
    !insertmacro UnselectSection ${SectionService}
  ${EndIf}
FunctionEnd

Function .onInit
  !insertmacro ONE_AT_A_TIME
  Call SelectSections
  StrCpy $IsUpdate 0
  ReadRegStr $0 HKLM "${UNINSTALL_KEY}" "DisplayVersion"
  ${VersionCompare} "${VERSION}" "$0" $1
  ${If} $0 != ""
  ${AndIf} $1 == 1 ; the first is newer
  ${AndIf} ${FileExists} "$INSTDIR\${AGENT_FILE}"
    StrCpy $IsUpdate 1
    SetAutoClose true
  ${EndIf}
FunctionEnd

Function un.onInit
  !insertmacro ONE_AT_A_TIME
FunctionEnd

; The entries by which users' agents start at logon, as far as they name this installation; those of users who are
; not logged on cannot be reached and start nothing.
Function un.RemoveAutostart
  StrCpy $0 0
  ${Do}
    EnumRegKey $1 HKU "" $0
    ${If} $1 == ""
      ${ExitDo}
    ${EndIf}
    ReadRegStr $2 HKU "$1\${RUN_KEY}" "VantelinkAgent"
    ${If} $2 == '"$INSTDIR\${AGENT_FILE}" --unattended'
      DeleteRegValue HKU "$1\${RUN_KEY}" "VantelinkAgent"
    ${EndIf}
    IntOp $0 $0 + 1
  ${Loop}
FunctionEnd

; The users' settings stay: a machine that is installed again is the same one to the server.
Section "Uninstall"
  SetShellVarContext all
  Call un.RemoveService
  Call un.EndAgents
  ${For} $0 1 50
    ClearErrors
    Delete "$INSTDIR\${AGENT_FILE}"
    ${IfNot} ${Errors}
      ${ExitFor}
    ${EndIf}
    Sleep 200
  ${Next}
  ${If} ${FileExists} "$INSTDIR\${AGENT_FILE}"
    !insertmacro SHOW_AND_ABORT "$(TextStillInUse)"
  ${EndIf}
  Delete "$INSTDIR\${UNINSTALLER_FILE}"
  Delete "${SHORTCUT}"
  Call un.RemoveAutostart
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  SetOutPath "$TEMP"
  RMDir "$INSTDIR"
  RMDir "$PROGRAMFILES64\Maravek"
SectionEnd
