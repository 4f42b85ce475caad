; Functions for the agent's Windows service: query its state, stop it and wait for its end, start it, create or
; reconfigure it, remove it. NSIS needs a second copy of each function that the uninstaller calls, with names that begin
; with "un."; the parameter UN is that prefix, or empty.

!define SERVICE_NAME "VantelinkAgent"
!define SERVICE_STOPPED 1
!define SERVICE_STOP_TIMEOUT 300 ; tenths of a second
!define SERVICE_ALL_ACCESS 0xF01FF
!define SC_MANAGER_ALL_ACCESS 0xF003F

Var ServiceState ; dwCurrentState of SERVICE_STATUS; 0 if the service does not exist
Var ServiceManager
Var Service ; an open handle, or 0

!macro SERVICE_FUNCTIONS UN

Function ${UN}OpenService
  StrCpy $Service 0
  System::Call 'advapi32::OpenSCManagerW(p 0, p 0, i ${SC_MANAGER_ALL_ACCESS}) p .s'
  Pop $ServiceManager
  ${If} $ServiceManager == 0
    Return
  ${EndIf}
  System::Call 'advapi32::OpenServiceW(p $ServiceManager, w "${SERVICE_NAME}", i ${SERVICE_ALL_ACCESS}) p .s'
  Pop $Service
FunctionEnd

Function ${UN}CloseService
  ${If} $Service != 0
    System::Call 'advapi32::CloseServiceHandle(p $Service)'
  ${EndIf}
  ${If} $ServiceManager != 0
    System::Call 'advapi32::CloseServiceHandle(p $ServiceManager)'
  ${EndIf}
  StrCpy $Service 0
  StrCpy $ServiceManager 0
FunctionEnd

; Sets $ServiceState from the open service.
Function ${UN}ReadServiceState
  StrCpy $ServiceState 0
  ${If} $Service == 0
    Return
  ${EndIf}
  Push $0
  System::Alloc 28 ; a SERVICE_STATUS
  Pop $0
  System::Call 'advapi32::QueryServiceStatus(p $Service, p r0) i'
  System::Call '*$0(i, i .s)'
  Pop $ServiceState
  System::Free $0
  Pop $0
FunctionEnd

; Stops the service; returns when it has stopped or SERVICE_STOP_TIMEOUT has passed.
Function ${UN}StopService
  Push $0
  Push $1
  Call ${UN}OpenService
  System::Alloc 28
  Pop $0
  ${If} $Service != 0
    System::Call 'advapi32::ControlService(p $Service, i 1, p r0) i'
  ${EndIf}
  System::Free $0
  ${For} $1 1 ${SERVICE_STOP_TIMEOUT}
    Call ${UN}ReadServiceState
    ${If} $ServiceState == 0
    ${OrIf} $ServiceState == ${SERVICE_STOPPED}
      ${ExitFor}
    ${EndIf}
    Sleep 100
  ${Next}
  Call ${UN}CloseService
  Pop $1
  Pop $0
FunctionEnd

Function ${UN}RemoveService
  Call ${UN}StopService
  Call ${UN}OpenService
  ${If} $Service != 0
    System::Call 'advapi32::DeleteService(p $Service) i'
  ${EndIf}
  Call ${UN}CloseService
FunctionEnd

!macroend

; Functions that only the installer needs.
!macro SERVICE_START_FUNCTIONS

Function QueryService
  Call OpenService
  Call ReadServiceState
  Call CloseService
FunctionEnd

; Starts the service. Sets $0 to 1 on success, otherwise to 0.
Function StartService
  StrCpy $0 0
  Call OpenService
  ${If} $Service != 0
    System::Call 'advapi32::StartServiceW(p $Service, i 0, p 0) i .r0'
  ${EndIf}
  Call CloseService
FunctionEnd

; Creates the service as the agent's --install-service does, but without its message box; an existing service is set to
; run the installed executable. On failure shows a message, and the installation continues without the service.
Function ConfigureService
  Push $0
  StrCpy $0 '"$INSTDIR\${AGENT_FILE}" --service'
  Call OpenService
  ${If} $Service != 0
    System::Call 'advapi32::ChangeServiceConfigW(p $Service, i -1, i -1, i -1, w r0, \
        p 0, p 0, p 0, p 0, p 0, p 0) i .r0'
  ${ElseIf} $ServiceManager != 0
    ; SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, the LocalSystem account.
    System::Call 'advapi32::CreateServiceW(p $ServiceManager, w "${SERVICE_NAME}", w "${PRODUCT_NAME}", \
        i ${SERVICE_ALL_ACCESS}, i 0x10, i 2, i 1, w r0, p 0, p 0, p 0, p 0, p 0) p .s'
    Pop $Service
    StrCpy $0 $Service
  ${Else}
    StrCpy $0 0
  ${EndIf}
  ${If} $0 == 0
    MessageBox MB_OK|MB_ICONSTOP "$(TextServiceFailed)" /SD IDOK
    SetErrorLevel 2
  ${EndIf}
  Call CloseService
  Pop $0
FunctionEnd

!macroend
