# The quick part of ./dev docs-check, as tests.

add_test(NAME guide_quick_check
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/docs-check.sh quick $<TARGET_FILE_DIR:stgctl>)
set_tests_properties(guide_quick_check PROPERTIES TIMEOUT 300 LABELS guide)
