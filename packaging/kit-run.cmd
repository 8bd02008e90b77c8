@echo off
rem Runs all tests of vu_storage on this Windows: double-click, or  run.cmd D:\somewhere
rem Nothing is installed, no administrator is needed, and nothing outside of this folder (or the
rem one that is named) is touched. It takes about ten minutes and leaves report.html and report.json.
setlocal
title vu_storage on this Windows
set result=3
if not exist "%~dp0bin\kit.exe" goto not_unpacked
"%~dp0bin\kit.exe" %*
set result=%errorlevel%
if %result% leq 2 if %result% geq 0 goto end
echo.
echo kit.exe did not run (%result%). If Windows has refused it: right-click the ZIP, choose
echo Properties, tick Unblock, and unpack it anew.
goto end

:not_unpacked
echo There is no bin\kit.exe beside this file. Please unpack the whole ZIP first
echo (right-click it, Extract All), and start run.cmd from there.

:end
if not defined VU_KIT_QUIET pause
exit /b %result%
