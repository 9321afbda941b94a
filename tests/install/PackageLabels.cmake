# Read by CTest after the package tests are discovered: gives each of them the "package" label
# beside "install", so that `ctest -L package` picks them out, and makes them wait for the one
# package that the setup step builds.
foreach(test IN LISTS ambrel_package_tests_TESTS)
    set_tests_properties(${test} PROPERTIES LABELS "install;package"
                                            FIXTURES_REQUIRED tovrin_package)
endforeach()
