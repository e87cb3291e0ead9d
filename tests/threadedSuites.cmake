# Read by ctest behind the lists of cases: gives the label threads, beside the one of their program, to the
# suites about threads and to those whose programs run several. script/sanitize tsan runs what bears it.
function(add_label_threads label tests)
  foreach(suite ${ARGN})
    set(cases ${tests})
    list(FILTER cases INCLUDE REGEX "(^|/)${suite}\\.")
    if(tests AND NOT cases)  # without tests the program has not been built
      message(SEND_ERROR "no case of the suite ${suite} has been found")
    endif()
    foreach(case ${cases})
      set_tests_properties(${case} PROPERTIES LABELS "${label};threads")
    endforeach()
  endforeach()
endfunction()

add_label_threads(plain "${unit_tests_TESTS}" ErrText FileLock FileLockMember FileLockOwner FileLockWait Subnets VThreadDeathTest)
add_label_threads(plain "${sync_tests_TESTS}" Sync SyncMutex SyncWaitQ)
add_label_threads(root "${host_tests_TESTS}" Threads)
add_label_threads(root "${system_tests_TESTS}" StartStop)
