; The installer: for one player, without elevation, into a folder that the
; launcher may write to, because it keeps everything beside itself.
;
; makensis gets: VERSION, LISTS (folder with install.nsh and uninstall.nsh),
; OUTPUT, SIZE in KiB, RESOURCES (the project's resources folder); SIGN, a command
; that signs the file that it is given, if there is one; and QUICK where a larger
; file matters less than a minute.
;
; A silent run (/S) asks nothing: it refuses while the launcher runs (exit code 3)
; and keeps the player's settings and patch cache.

Unicode true
Target amd64-unicode
ManifestDPIAware true
ManifestSupportedOS Win10
RequestExecutionLevel user
!ifdef QUICK
    SetCompressor zlib
!else
    SetCompressor /SOLID lzma
!endif

!include LogicLib.nsh
!include MUI2.nsh
!include WinVer.nsh
!include x64.nsh

!define NAME "Halden Launcher"
!define PROGRAM "Halden-Launcher.exe"
!define UPDATER "Halden-Launcher-Updater.exe"
!define UNINSTALLER "Uninstall.exe"
!define REGISTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${NAME}"
!define SHORTCUT "$SMPROGRAMS\${NAME}.lnk"
!define EXIT_RUNNING 3
!define EXIT_SYSTEM 4

Name "${NAME}"
OutFile "${OUTPUT}"
InstallDir "$LOCALAPPDATA\Programs\${NAME}"
InstallDirRegKey HKCU "${REGISTRY}" "InstallLocation"
BrandingText "${NAME} ${VERSION}"
AllowSkipFiles off
ShowInstDetails nevershow
ShowUninstDetails nevershow

!ifdef SIGN
    !finalize '${SIGN} "%1"' = 0
    !uninstfinalize '${SIGN} "%1"' = 0
!endif

VIProductVersion "${VERSION}.0"
VIAddVersionKey /LANG=0 "ProductName" "${NAME}"
VIAddVersionKey /LANG=0 "FileDescription" "${NAME} Setup"
VIAddVersionKey /LANG=0 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=0 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=0 "CompanyName" "Tarnwick"
VIAddVersionKey /LANG=0 "LegalCopyright" ""

; --- Pages ---------------------------------------------------------------------

!define MUI_ICON "${RESOURCES}\icons\Halden-Logo.ico"
!define MUI_UNICON "${RESOURCES}\icons\Halden-Logo.ico"
!define MUI_ABORTWARNING
!define MUI_WELCOMEFINISHPAGE_BITMAP "${NSISDIR}/Contrib/Graphics/Wizard/nsis3-grey.bmp"
!define MUI_FINISHPAGE_RUN "$INSTDIR\${PROGRAM}"

!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES

; The first one is for everybody else.
!insertmacro MUI_LANGUAGE "English"
!insertmacro MUI_LANGUAGE "German"
!insertmacro MUI_RESERVEFILE_LANGDLL

LangString running ${LANG_ENGLISH} "${NAME} is running. Please close it, then try again."
LangString running ${LANG_GERMAN} "${NAME} läuft gerade. Bitte beenden Sie das Programm und versuchen Sie es dann noch einmal."
LangString tooOld ${LANG_ENGLISH} "${NAME} needs a 64-bit Windows 10 or later."
LangString tooOld ${LANG_GERMAN} "${NAME} braucht ein 64-Bit-Windows ab Version 10."
LangString removeData ${LANG_ENGLISH} "Shall your client entries (Settings) and the patch cache (ClientDataStorage) be removed as well?$\r$\n$\r$\nYour game folders are left alone in any case."
LangString removeData ${LANG_GERMAN} "Sollen auch Ihre Client-Einträge (Settings) und der Patch-Cache (ClientDataStorage) entfernt werden?$\r$\n$\r$\nIhre Spielordner bleiben in jedem Fall unberührt."

; --- A launcher that runs ------------------------------------------------------

; Windows opens the file of a running program for nobody who would write to it.
; An updater that is at work is about to start the launcher.
!macro RefuseWhileRunning UN
Function ${UN}refuseWhileRunning
    again:
    StrCpy $1 ""
    ${For} $2 1 2
        StrCpy $0 "$INSTDIR\${PROGRAM}"
        ${If} $2 = 2
            StrCpy $0 "$INSTDIR\${UPDATER}"
        ${EndIf}
        ${If} ${FileExists} "$0"
            ClearErrors
            FileOpen $0 "$0" a
            ${If} ${Errors}
                StrCpy $1 "running"
            ${Else}
                FileClose $0
            ${EndIf}
        ${EndIf}
    ${Next}
    ${If} $1 == "running"
        MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "$(running)" /SD IDCANCEL IDRETRY again
        SetErrorLevel ${EXIT_RUNNING}
        Quit
    ${EndIf}
FunctionEnd
!macroend
!insertmacro RefuseWhileRunning ""
!insertmacro RefuseWhileRunning "un."

; --- Installing ----------------------------------------------------------------

Function .onInit
    ${IfNot} ${RunningX64}
    ${OrIfNot} ${AtLeastWin10}
        MessageBox MB_OK|MB_ICONSTOP "$(tooOld)" /SD IDOK
        SetErrorLevel ${EXIT_SYSTEM}
        Quit
    ${EndIf}
FunctionEnd

Section
    Call refuseWhileRunning

    ; What an older version has put down and this one has not goes, so that no
    ; library of other times is left. This removes nothing of the player's.
    ${If} ${FileExists} "$INSTDIR\${UNINSTALLER}"
        ExecWait '"$INSTDIR\${UNINSTALLER}" /S _?=$INSTDIR'
    ${EndIf}

    !include "${LISTS}\install.nsh"
    SetOutPath "$INSTDIR"
    WriteUninstaller "$INSTDIR\${UNINSTALLER}"
    CreateShortcut "${SHORTCUT}" "$INSTDIR\${PROGRAM}"

    WriteRegStr HKCU "${REGISTRY}" "DisplayName" "${NAME}"
    WriteRegStr HKCU "${REGISTRY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKCU "${REGISTRY}" "DisplayIcon" "$INSTDIR\${PROGRAM}"
    WriteRegStr HKCU "${REGISTRY}" "Publisher" "Tarnwick"
    WriteRegStr HKCU "${REGISTRY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKCU "${REGISTRY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
    WriteRegStr HKCU "${REGISTRY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
    WriteRegDWORD HKCU "${REGISTRY}" "EstimatedSize" ${SIZE}
    WriteRegDWORD HKCU "${REGISTRY}" "NoModify" 1
    WriteRegDWORD HKCU "${REGISTRY}" "NoRepair" 1
SectionEnd

; --- Uninstalling --------------------------------------------------------------

Section "Uninstall"
    Call un.refuseWhileRunning

    MessageBox MB_YESNO|MB_ICONQUESTION|MB_DEFBUTTON2 "$(removeData)" /SD IDNO IDNO keepData
    RMDir /r "$INSTDIR\Settings"
    RMDir /r "$INSTDIR\ClientDataStorage"
    keepData:

    !include "${LISTS}\uninstall.nsh"
    ; What the launcher and its updater leave beside themselves.
    Delete "$INSTDIR\launcher.info"
    Delete "$INSTDIR\launcher.info-new"
    Delete "$INSTDIR\Halden-Launcher.tmp"
    Delete "$INSTDIR\Halden-Launcher.old"
    Delete "$INSTDIR\Halden-Launcher-Updater.log"
    Delete "$INSTDIR\Halden-Launcher*-new"
    Delete "$INSTDIR\${UNINSTALLER}"
    ; Only if nothing is left in it.
    SetOutPath "$TEMP"
    RMDir "$INSTDIR"

    Delete "${SHORTCUT}"
    DeleteRegKey HKCU "${REGISTRY}"
SectionEnd
