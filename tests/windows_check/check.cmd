@echo off
rem How Kestro fares on this Windows: its own tests, then harmless questions to Windows' own services.
setlocal
cd /d "%~dp0"
echo This check
echo   - runs Kestro's test programs, which bring doubles of Windows' services and change nothing;
echo   - mounts the tiny image beside it in a folder of its own below TEMP, drops it again without
echo     saving, and asks for drivers, a disk, files and an INF that are not there;
echo   - puts win.ini back as it was: Kestro's wide functions stamp it;
echo   - writes report.txt and report.json here: versions, each difference, no names.
echo It installs nothing and changes no disk, no driver and no setting. Mounting an image needs a prompt
echo that was opened with "Run as administrator"; without it those answers differ, and the report says so.
echo.
if /i not "%~1"=="/y" pause
kestro-check.exe report
set result=%errorlevel%
echo.
if %result%==0 echo Everything is as expected. The report is report.txt.
if %result%==1 echo There are differences. Please pass on report.txt and report.json.
if %result%==2 echo The check could not be made.
exit /b %result%
