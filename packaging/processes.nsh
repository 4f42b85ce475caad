; Functions that end the agents running from the installation folder, in all Windows sessions, and start an
; agent for the user at the screen.

!define PROCESS_ENTRY_SIZE 568 ; a PROCESSENTRY32W of 64-bit Windows
!define END_TIMEOUT 10000 ; milliseconds

!macro PROCESS_FUNCTIONS UN

; Ends the process with the id $0 if its executable is the agent in $INSTDIR.
Function ${UN}EndIfAgent
  Push $1
  Push $2
  System::Call 'kernel32::OpenProcess(i 0x101001, i 0, i r0) p .r1' ; PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE
  ${If} $1 != 0
    StrCpy $2 ""
    System::Call 'kernel32::QueryFullProcessImageNameW(p r1, i 0, w .r2, *i ${NSIS_MAX_STRLEN}) i'
    ${If} $2 == "$INSTDIR\${AGENT_FILE}"
      System::Call 'kernel32::TerminateProcess(p r1, i 0) i'
      System::Call 'kernel32::WaitForSingleObject(p r1, i ${END_TIMEOUT}) i'
    ${EndIf}
    System::Call 'kernel32::CloseHandle(p r1)'
  ${EndIf}
  Pop $2
  Pop $1
FunctionEnd

; Enables the debug privilege, without which an administrator cannot end the process of another user.
Function ${UN}EnableDebugPrivilege
  Push $0
  Push $1
  Push $2
  System::Call 'advapi32::OpenProcessToken(p -1, i 0x28, *p .r0) i' ; TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES
  System::Call '*(i 1, i 0, i 0, i 2) p .r1' ; TOKEN_PRIVILEGES with one entry, enabled
  IntPtrOp $2 $1 + 4
  System::Call 'advapi32::LookupPrivilegeValueW(p 0, w "SeDebugPrivilege", p r2) i'
  System::Call 'advapi32::AdjustTokenPrivileges(p r0, i 0, p r1, i 0, p 0, p 0) i'
  System::Free $1
  System::Call 'kernel32::CloseHandle(p r0)'
  Pop $2
  Pop $1
  Pop $0
FunctionEnd

Function ${UN}EndAgents
  Push $0
  Push $1
  Push $2
  Push $3
  Call ${UN}EnableDebugPrivilege
  System::Call 'kernel32::CreateToolhelp32Snapshot(i 2, i 0) p .r1'
  System::Alloc ${PROCESS_ENTRY_SIZE}
  Pop $2
  System::Call '*$2(i ${PROCESS_ENTRY_SIZE})'
  System::Call 'kernel32::Process32FirstW(p r1, p r2) i .r3'
  ${While} $3 != 0
    System::Call '*$2(i, i, i .r0)'
    Call ${UN}EndIfAgent
    System::Call 'kernel32::Process32NextW(p r1, p r2) i .r3'
  ${EndWhile}
  System::Free $2
  System::Call 'kernel32::CloseHandle(p r1)'
  Pop $3
  Pop $2
  Pop $1
  Pop $0
FunctionEnd

!macroend

!macro PROCESS_START_FUNCTIONS

; Starts the command $0 with the rights of the desktop's shell, so that the agent does not inherit the installer's
; administrator rights. Sets $0 to 1 on success, otherwise to 0.
Function StartAsShell
  Push $1
  Push $2
  Push $3
  Push $4
  Push $5
  StrCpy $4 0
  System::Call 'user32::GetShellWindow() p .r1'
  System::Call 'user32::GetWindowThreadProcessId(p r1, *i .r2) i'
  System::Call 'kernel32::OpenProcess(i 0x400, i 0, i r2) p .r1'
  ${If} $1 != 0
    System::Call 'advapi32::OpenProcessToken(p r1, i 2, *p .r2) i'
    System::Call 'advapi32::DuplicateTokenEx(p r2, i 0x2000000, p 0, i 2, i 1, *p .r3) i'
    System::Alloc 128 ; STARTUPINFOW, 104 bytes, then PROCESS_INFORMATION, 24 bytes
    Pop $5
    System::Call '*$5(i 104)'
    IntPtrOp $1 $5 + 104
    System::Call 'advapi32::CreateProcessWithTokenW(p r3, i 0, p 0, w r0, i 0, p 0, p 0, p r5, p r1) i .r4'
    System::Free $5
  ${EndIf}
  StrCpy $0 $4
  Pop $5
  Pop $4
  Pop $3
  Pop $2
  Pop $1
FunctionEnd

; Starts the agent, except in session 0: a deployment tool that runs there has no desktop to show an agent on.
Function StartAgent
  Push $0
  Push $1
  System::Call 'kernel32::GetCurrentProcessId() i .r0'
  System::Call 'kernel32::ProcessIdToSessionId(i r0, *i .r1) i'
  ${If} $1 != 0
    StrCpy $1 '"$INSTDIR\${AGENT_FILE}"'
    ${If} ${Silent}
      StrCpy $1 '$1 --unattended'
    ${EndIf}
    StrCpy $0 $1
    Call StartAsShell
    ${If} $0 == 0
      Exec $1
    ${EndIf}
  ${EndIf}
  Pop $1
  Pop $0
FunctionEnd

!macroend
