; Lets Windows verify the relay's certificate once. Windows knows most root certificates only by name and fetches one when
; it builds a certificate's chain itself. The agent, which reads the known roots when it starts and builds chains itself,
; would stay offline on a machine that does not have the relay's root yet.

!define RELAY_PORT 443
!define RELAY_TIMEOUT 15000 ; milliseconds
!define VERIFY_RELAY "/VERIFYRELAY" ; the installer's switch for VerifyRelay
!define WINHTTP_ACCESS_TYPE_NO_PROXY 1 ; the agent uses no proxy either
!define WINHTTP_FLAG_SECURE 0x00800000
!define ERROR_FUNCTION_FAILED 1627
!define ERROR_WINHTTP_TIMEOUT 12002
!define ERROR_WINHTTP_NAME_NOT_RESOLVED 12007
!define ERROR_WINHTTP_CANNOT_CONNECT 12029
!define ERROR_WINHTTP_CONNECTION_ERROR 12030
!define ERROR_WINHTTP_SECURE_CHANNEL_ERROR 12157 ; what Wine reports for a chain without a root
!define ERROR_WINHTTP_SECURE_FAILURE 12175 ; what Windows reports

; Sends one request to the relay, and ends this process with the error code as its exit status.
Function VerifyRelay
  System::Call 'winhttp::WinHttpOpen(w "VantelinkSetup", i ${WINHTTP_ACCESS_TYPE_NO_PROXY}, p 0, p 0, i 0) p .r0'
  System::Call 'winhttp::WinHttpConnect(p r0, w "${RELAY}", i ${RELAY_PORT}, i 0) p .r1'
  System::Call 'winhttp::WinHttpOpenRequest(p r1, w "HEAD", w "/", p 0, p 0, p 0, i ${WINHTTP_FLAG_SECURE}) p .r2'
  System::Call 'winhttp::WinHttpSendRequest(p r2, p 0, i 0, p 0, i 0, i 0, p 0) i .r3 ?e'
  Pop $RelayError
  ${If} $3 != 0
    StrCpy $RelayError 0
  ${EndIf}
  SetErrorLevel $RelayError
  Quit
FunctionEnd

; Runs VerifyRelay in a second process, which is ended after RELAY_TIMEOUT, and sets $RelayError. WinHTTP has no limit for
; the whole of a request.
Function RequestRelay
  nsExec::Exec /TIMEOUT=${RELAY_TIMEOUT} '"$EXEPATH" /S ${VERIFY_RELAY}'
  Pop $RelayError
  ${If} $RelayError == "timeout"
    StrCpy $RelayError ${ERROR_WINHTTP_TIMEOUT}
  ${ElseIf} $RelayError == "error" ; the second process could not be started
    StrCpy $RelayError ${ERROR_FUNCTION_FAILED}
  ${EndIf}
FunctionEnd

; Reports that the request failed. The installation is complete nevertheless.
Function ReportRelayError
  Push $0
  ${If} $RelayError == 0
    Goto nothing
  ${EndIf}
  ${Switch} $RelayError
    ${Case} ${ERROR_WINHTTP_NAME_NOT_RESOLVED}
      StrCpy $0 "$(TextRelayUnknown)$\r$\n$(TextRelayLater)"
      ${Break}
    ${Case} ${ERROR_WINHTTP_SECURE_CHANNEL_ERROR}
    ${Case} ${ERROR_WINHTTP_SECURE_FAILURE}
      StrCpy $0 "$(TextRelayNotTrusted)"
      ${Break}
    ${Case} ${ERROR_WINHTTP_TIMEOUT}
    ${Case} ${ERROR_WINHTTP_CANNOT_CONNECT}
    ${Case} ${ERROR_WINHTTP_CONNECTION_ERROR}
      StrCpy $0 "$(TextRelaySilent)$\r$\n$(TextRelayLater)"
      ${Break}
    ${Default}
      StrCpy $0 "$(TextRelayError) $RelayError.$\r$\n$(TextRelayLater)"
  ${EndSwitch}
  MessageBox MB_OK|MB_ICONEXCLAMATION "$0" /SD IDOK
  nothing:
  Pop $0
FunctionEnd
