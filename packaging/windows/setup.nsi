; The setup program: for one user, without administrator rights, in French. scripts/windows package
; defines VERSION, VERSION_NUMBERS, FILES, REMOVALS, OUTPUT, SIZE_KB, ICON and SERVER_URL.
;
;   /S          installs or removes without a question
;   /D=FOLDER   another folder (last on the command line, without quotes)
;   /DESKTOP    with /S: a shortcut on the desktop as well
;
; Exit code 0: done; 1: cancelled; 2: failed; 3: the launcher or its updater program is running.

Unicode true
Target amd64-unicode
ManifestSupportedOS all
ManifestDPIAware true
RequestExecutionLevel user
SetCompressor /SOLID lzma

!define PRODUCT "Veyra Launcher"
!define COMPANY "Veyra"
!define PROGRAM "VeyraLauncher.exe"
; Where the updater program keeps what it needs while it replaces files.
!define UPDATE_FOLDER ".veyra-maj"
!define UNINSTALLER "Desinstaller.exe"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\VeyraLauncher"
!define EXIT_FAILED 2
!define EXIT_RUNNING 3

!include MUI2.nsh
!include FileFunc.nsh
!include LogicLib.nsh

Name "${PRODUCT}"
OutFile "${OUTPUT}"
BrandingText "${PRODUCT} ${VERSION}"
; A folder of the user: the launcher replaces its own files there and makes its "Client" folder.
InstallDir "$LOCALAPPDATA\Programs\${PRODUCT}"
; An older version is replaced where it is.
InstallDirRegKey HKCU "${UNINSTALL_KEY}" "InstallLocation"

VIProductVersion "${VERSION_NUMBERS}"
VIFileVersion "${VERSION_NUMBERS}"
VIAddVersionKey /LANG=1036 "CompanyName" "${COMPANY}"
VIAddVersionKey /LANG=1036 "ProductName" "${PRODUCT}"
VIAddVersionKey /LANG=1036 "FileDescription" "Installation de ${PRODUCT}"
VIAddVersionKey /LANG=1036 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=1036 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=1036 "LegalCopyright" "${COMPANY}"

!define MUI_ICON "${ICON}"
!define MUI_UNICON "${ICON}"
!define MUI_ABORTWARNING
!define MUI_FINISHPAGE_RUN "$INSTDIR\${PROGRAM}"

!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_COMPONENTS
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "French"

; The updater program has this object while it works, in whatever folder. It is the session's alone, as
; the installation is one person's: another person's updater is no obstacle, and nobody else can hold
; up the setup program with an object of that name.
!define UPDATER_OBJECT "Local\VeyraLauncher-maj"
!define SYNCHRONIZE 0x00100000

!macro RefuseWhileUpdating
    ${Do}
        System::Call 'kernel32::OpenMutexW(i ${SYNCHRONIZE}, i 0, w "${UPDATER_OBJECT}") p .r0'
        ${If} $0 P= 0
            ${ExitDo}
        ${EndIf}
        System::Call 'kernel32::CloseHandle(p r0)'
        MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION \
            "Une mise à jour de ${PRODUCT} est en cours.$\n$\nAttendez la fin, puis réessayez." \
            /SD IDCANCEL IDRETRY +3
        SetErrorLevel ${EXIT_RUNNING}
        Quit
    ${Loop}
!macroend

; A program that runs cannot be opened for writing. Opening changes nothing in the file.
!macro RefuseWhileRunning
    ${Do}
        ${IfNot} ${FileExists} "$INSTDIR\${PROGRAM}"
            ${ExitDo}
        ${EndIf}
        ClearErrors
        FileOpen $0 "$INSTDIR\${PROGRAM}" a
        ${IfNot} ${Errors}
            FileClose $0
            ${ExitDo}
        ${EndIf}
        MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION \
            "${PRODUCT} est en cours d'exécution.$\n$\nFermez-le, puis réessayez." \
            /SD IDCANCEL IDRETRY +3
        SetErrorLevel ${EXIT_RUNNING}
        Quit
    ${Loop}
!macroend

Section "!${PRODUCT}" SectionProgram
    SectionIn RO
    !insertmacro RefuseWhileUpdating
    !insertmacro RefuseWhileRunning

    ; What an interrupted update left would be undone over what is installed now.
    RMDir /r "$INSTDIR\${UPDATE_FOLDER}"
    SetOutPath "$INSTDIR"
    SetOverwrite on
    ClearErrors
    File /r "${FILES}\*"
    ${If} ${Errors}
        SetErrorLevel ${EXIT_FAILED}
        Abort "Des fichiers n'ont pas pu être écrits dans $INSTDIR."
    ${EndIf}
    WriteUninstaller "$INSTDIR\${UNINSTALLER}"

    CreateShortcut "$SMPROGRAMS\${PRODUCT}.lnk" "$INSTDIR\${PROGRAM}"

    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\${PROGRAM}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "Publisher" "${COMPANY}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr HKCU "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
    !if "${SERVER_URL}" != ""
        WriteRegStr HKCU "${UNINSTALL_KEY}" "URLInfoAbout" "${SERVER_URL}"
    !endif
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "EstimatedSize" ${SIZE_KB}
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Section /o "Raccourci sur le bureau" SectionDesktop
    CreateShortcut "$DESKTOP\${PRODUCT}.lnk" "$INSTDIR\${PROGRAM}"
SectionEnd

Function .onInit
    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/DESKTOP" $1
    ${IfNot} ${Errors}
        SectionSetFlags ${SectionDesktop} ${SF_SELECTED}
    ${EndIf}
    ClearErrors
FunctionEnd

!insertmacro MUI_FUNCTION_DESCRIPTION_BEGIN
    !insertmacro MUI_DESCRIPTION_TEXT ${SectionProgram} "Le launcher et son entrée dans le menu Démarrer."
    !insertmacro MUI_DESCRIPTION_TEXT ${SectionDesktop} "Un raccourci vers le launcher sur le bureau."
!insertmacro MUI_FUNCTION_DESCRIPTION_END

Section "Uninstall"
    !insertmacro RefuseWhileUpdating
    !insertmacro RefuseWhileRunning

    ; File by file: whatever else lies in the folder is the person's own.
    !include "${REMOVALS}"
    RMDir /r "$INSTDIR\${UPDATE_FOLDER}"
    Delete "$INSTDIR\${UNINSTALLER}"
    Delete "$SMPROGRAMS\${PRODUCT}.lnk"
    Delete "$DESKTOP\${PRODUCT}.lnk"
    DeleteRegKey HKCU "${UNINSTALL_KEY}"

    ; A game folder that was chosen elsewhere is never touched.
    ${If} ${FileExists} "$INSTDIR\Client\*.*"
        MessageBox MB_YESNO|MB_ICONQUESTION|MB_DEFBUTTON2 \
            "Supprimer aussi le client du jeu ?$\n$\n$INSTDIR\Client" /SD IDNO IDNO keepClient
        RMDir /r "$INSTDIR\Client"
        keepClient:
    ${EndIf}

    SetOutPath "$TEMP"
    RMDir "$INSTDIR"
SectionEnd
