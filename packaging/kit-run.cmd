@echo off
rem Runs all tests of vu_storage on this Windows: double-click, or  run.cmd D:\somewhere
rem It installs nothing, needs no administrator, and changes nothing outside this folder (or the
rem named one). It takes about ten minutes and writes report.html and report.json.
setlocal
title vu_storage on this Windows
set result=3
if not exist "%~dp0bin\kit.exe" goto not_unpacked
"%~dp0bin\kit.exe" %*
set result=%errorlevel%
if %result% leq 2 if %result% geq 0 goto end
echo.
echo kit.exe did not run (%result%). If Windows blocked it: right-click the ZIP, choose
echo Properties, tick Unblock, and unpack it again.
goto end

:not_unpacked
echo bin\kit.exe is missing beside this file. Unpack the whole ZIP first
echo (right-click it, Extract All) and start run.cmd in the new folder.

:end
if not defined VU_KIT_QUIET pause
exit /b %result%
