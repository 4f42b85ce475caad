; The installer's own texts in English and Icelandic; NSIS supplies the texts of its standard pages.

!macro TEXT NAME ENGLISH ICELANDIC
  LangString ${NAME} ${LANG_ENGLISH} "${ENGLISH}"
  LangString ${NAME} ${LANG_ICELANDIC} "${ICELANDIC}"
!macroend

!insertmacro TEXT TextProduct "Maravek Remote Support" "Maravek Fjaraðstoð"
!insertmacro TEXT TextAgent "Agent" "Forrit"
!insertmacro TEXT TextAgentHelp "The program that connects this machine." "Forritið sem tengir þessa tölvu."
!insertmacro TEXT TextService "Service" "Þjónusta"
!insertmacro TEXT TextServiceHelp \
  "Keeps the program running for whoever is logged on, also after a restart." \
  "Heldur forritinu gangandi fyrir þann sem er skráður inn, líka eftir endurræsingu."
!insertmacro TEXT TextStartMenu "Start menu entry" "Færsla í upphafsvalmynd"
!insertmacro TEXT TextStartMenuHelp \
  "Adds the program to the Start menu of all users." \
  "Bætir forritinu við upphafsvalmynd allra notenda."
!insertmacro TEXT TextNoSpace \
  "The files could not be written. Nothing was changed." \
  "Ekki tókst að skrifa skrárnar. Engu var breytt."
!insertmacro TEXT TextInUse \
  "The program is in use and could not be replaced. The installed version stays as it was." \
  "Forritið er í notkun og ekki var hægt að skipta því út. Uppsetta útgáfan er óbreytt."
!insertmacro TEXT TextStillInUse \
  "The program is in use and could not be removed." \
  "Forritið er í notkun og ekki var hægt að fjarlægja það."
!insertmacro TEXT TextServiceFailed \
  "The service could not be set up." \
  "Ekki tókst að setja upp þjónustuna."
!insertmacro TEXT TextAlreadyRunning \
  "The installation is running already." \
  "Uppsetningin er þegar í gangi."
!insertmacro TEXT TextRelayUnknown \
  "The name of the relay, ${RELAY}, is not known on this network." \
  "Nafn miðlarans, ${RELAY}, er ekki þekkt á þessu neti."
!insertmacro TEXT TextRelaySilent \
  "The relay ${RELAY} did not answer." \
  "Miðlarinn ${RELAY} svaraði ekki."
!insertmacro TEXT TextRelayNotTrusted \
  "Windows does not trust the certificate of the relay ${RELAY} (error $RelayError).$\r$\nThe program is installed, and connects after the relay's root certificate has been added to Windows and the program has been started again." \
  "Windows treystir ekki skilríki miðlarans ${RELAY} (villa $RelayError).$\r$\nForritið er uppsett og tengist eftir að rótarskilríki miðlarans hefur verið bætt við Windows og forritið ræst aftur."
!insertmacro TEXT TextRelayError \
  "The relay ${RELAY} could not be reached. Windows reports error" \
  "Ekki náðist samband við miðlarann ${RELAY}. Windows gefur upp villu"
!insertmacro TEXT TextRelayLater \
  "The program is installed and connects as soon as it can reach the relay." \
  "Forritið er uppsett og tengist um leið og samband næst við miðlarann."
