; The uninstaller. It leaves the settings of users in the registry, so that a machine on which the agent is installed
; again keeps its identity with the server.

Function un.onInit
  !insertmacro ONE_AT_A_TIME
FunctionEnd

; Deletes the Run entries of users that start this installation's agent at logon. Only the registries of logged-on users
; are loaded; an entry of another user remains and starts nothing, because its file is gone.
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
