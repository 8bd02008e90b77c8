@echo off
rem Runs all tests of vu_storage on this Windows: double-click, or  run.cmd D:\somewhere
rem Nothing is installed, no administrator is needed, and nothing outside of this folder (or the
rem one that is named) is touched. It takes about ten minutes and leaves report.html and report.json.
setlocal
title vu_storage on this Windows
"%~dp0bin\kit.exe" %*
set result=%errorlevel%
if exist "%~dp0report.html" if not defined VU_KIT_QUIET start "" "%~dp0report.html"
if not defined VU_KIT_QUIET pause
exit /b %result%
