; The agent's service as the installer and the uninstaller need it: what state it is in, stopping it with its end
; awaited, starting, pointing it at the installed executable, removing it. Defined twice, as NSIS wants it: UN is
; "un." in the uninstaller.

!define SERVICE_NAME "VantelinkAgent"
!define SERVICE_STOPPED 1
!define SERVICE_STOP_PATIENCE 300 ; tenths of a second
!define SERVICE_ALL_ACCESS 0xF01FF
!define SC_MANAGER_ALL_ACCESS 0xF003F

Var ServiceState ; dwCurrentState; 0 when there is no such service
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

; Of the open service.
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

; Returns when the service has stopped, or when it did not within the patience.
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
  ${For} $1 1 ${SERVICE_STOP_PATIENCE}
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

; Those that only the installer needs.
!macro SERVICE_START_FUNCTIONS

Function QueryService
  Call OpenService
  Call ReadServiceState
  Call CloseService
FunctionEnd

; $0 becomes 1 if that worked, otherwise 0.
Function StartService
  StrCpy $0 0
  Call OpenService
  ${If} $Service != 0
    System::Call 'advapi32::StartServiceW(p $Service, i 0, p 0) i .r0'
  ${EndIf}
  Call CloseService
FunctionEnd

; As the agent's own --install-service, but without its message box, and a service that runs another copy of the
; executable is pointed at the installed one. A failure is told, and the installation goes on without the service.
Function ConfigureService
  Push $0
  StrCpy $0 '"$INSTDIR\${AGENT_FILE}" --service'
  Call OpenService
  ${If} $Service != 0
    System::Call 'advapi32::ChangeServiceConfigW(p $Service, i -1, i -1, i -1, w r0, \
        p 0, p 0, p 0, p 0, p 0, p 0) i .r0'
  ${ElseIf} $ServiceManager != 0
    ; Own process, started with the system, errors reported as usual, the local system account.
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
