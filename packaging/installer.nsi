; The installer. An agent whose user accepts an update downloads and starts the same program. If an older version is
; installed, the installer asks nothing. It writes the new files completely before it stops running agents, and replaces each old file in one
; step, so that a failure leaves the installed version working.
;
; Switches: /S installs silently; /SERVICE, /NOSERVICE and /NOSTARTMENU override the choice of parts; by default,
; the parts that are already installed are chosen; /D=FOLDER sets the folder and must be last and without quotes.
; The installer calls itself with /VERIFYRELAY (relay.nsh).
; Exit status: 0 success, 1 cancelled, 2 failed, or everything installed except the service.
;
; make-package defines VERSION, VERSION_RECORD (the version as four numbers), AGENT (path of the executable),
; AGENT_KILOBYTES (its size), RELAY (the host name of the relay that is compiled into it), OUT (path of the installer), SOURCE (path of the source tree) and SIGN (a command that
; signs the file whose path is appended to it; empty for no signature).

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

Var IsUpdate ; 1 if an older version is installed
Var RelayError ; of the request to the relay, an error code of Windows; 0 after a success or without a request
Var ServiceRan ; 1 if the service ran when it was stopped for the new files, otherwise 0; empty before that

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
; The installer is in Icelandic if the display language of Windows is Icelandic, otherwise in English.
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
!include "relay.nsh"
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

; Lets only one installer or uninstaller run at a time, because two would delete each other's files. The mutex is
; released when the process ends.
!macro ONE_AT_A_TIME
  System::Call 'kernel32::CreateMutexW(p 0, i 1, w "Global\VantelinkSetup") p ?e'
  Pop $0
  ${If} $0 = 183 ; ERROR_ALREADY_EXISTS
    !insertmacro SHOW_AND_ABORT "$(TextAlreadyRunning)"
  ${EndIf}
!macroend

Function SkipInUpdate
  ${If} $IsUpdate == 1
    Abort
  ${EndIf}
FunctionEnd

; Replaces the file $0 by the file $0.new in one step, and sets $0 to 0 on failure. It tries for ten seconds, because
; a virus scanner may have the file open.
Function TakePlace
  Push $1
  Push $2
  StrCpy $1 $0
  ${For} $2 1 50
    System::Call 'kernel32::MoveFileExW(w "$1.new", w r1, i 9) i .r0' ; MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH
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

; Starts the service again if it ran; the service then starts the agent. If the service did not run or does not start,
; for instance because it is disabled, starts the agent directly.
Function StartAgain
  StrCpy $0 0
  ${If} $ServiceRan == 1
    Call StartService
  ${EndIf}
  ${If} $0 == 0
    Call StartAgent
  ${EndIf}
FunctionEnd

; Starts the old agent again after an update that failed before the installer stopped anything: the agent that started
; the update has ended by itself. If the service runs, it has already started another agent.
Function StartEndedAgent
  ${If} $IsUpdate == 1
  ${AndIf} $ServiceRan == ""
    Call QueryService
    ${If} $ServiceState == 0
    ${OrIf} $ServiceState == ${SERVICE_STOPPED}
      Call StartAgent
    ${EndIf}
    StrCpy $IsUpdate 0 ; so that a second call does not start a second agent
  ${EndIf}
FunctionEnd

; Removes the new files after a failure and leaves an older installation complete. NSIS calls this function itself when
; a file can be created but not written completely.
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

  ; An agent that offered an update has just been connected, so Windows knows the root.
  ${If} $IsUpdate == 0
    Call RequestRelay
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
  Delete "$INSTDIR\${UNINSTALLER_FILE}.new" ; exists only if TakePlace failed; the older uninstaller works as well

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

; Removes the parts that are not selected and starts the service or the agent.
Section "-finish"
  ${IfNot} ${SectionIsSelected} ${SectionStartMenu}
    Delete "${SHORTCUT}"
  ${EndIf}
  ${IfNot} ${SectionIsSelected} ${SectionService}
    Call RemoveService
    StrCpy $ServiceRan 0
  ${EndIf}
  Call StartAgain
  ${If} $IsUpdate == 0
    Call ReportRelayError
  ${EndIf}
SectionEnd

!insertmacro MUI_FUNCTION_DESCRIPTION_BEGIN
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionAgent} "$(TextAgentHelp)"
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionStartMenu} "$(TextStartMenuHelp)"
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionService} "$(TextServiceHelp)"
!insertmacro MUI_FUNCTION_DESCRIPTION_END

; Selects the parts that are already installed; the switches override this choice.
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
  ${GetParameters} $1
  ClearErrors
  ${GetOptions} $1 "${VERIFY_RELAY}" $2
  ${IfNot} ${Errors}
    Call VerifyRelay
  ${EndIf}
  !insertmacro ONE_AT_A_TIME
  Call SelectSections
  StrCpy $IsUpdate 0
  ReadRegStr $0 HKLM "${UNINSTALL_KEY}" "DisplayVersion"
  ${VersionCompare} "${VERSION}" "$0" $1
  ${If} $0 != ""
  ${AndIf} $1 == 1 ; VERSION is newer than the installed one
  ${AndIf} ${FileExists} "$INSTDIR\${AGENT_FILE}"
    StrCpy $IsUpdate 1
    SetAutoClose true
  ${EndIf}
FunctionEnd

!include "uninstall.nsh"
