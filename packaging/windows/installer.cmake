# Makes the Windows installer of the files that the archive has. cpack runs this after it has made the
# archive, with its variables.
cmake_minimum_required(VERSION 3.25)
set(upgrade_code F5401449-A8B7-49BD-847C-62C0124CB172)  # of all versions: it never changes
set(tree ${CPACK_TEMPORARY_DIRECTORY})
set(installer ${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.msi)
set(draft ${installer}.new)  # which gets its name when it is complete
set(fragment ${installer}.wxs)

# run(command...): fails if the command does, or if it prints a warning.
function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${tree} OUTPUT_QUIET ERROR_VARIABLE said RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR said)
    message(FATAL_ERROR "${ARGN}: ${status} ${said}")
  endif()
endfunction()

# The same files have the same codes, wherever and whenever the installer is made.
file(GLOB_RECURSE files LIST_DIRECTORIES OFF RELATIVE ${tree} ${tree}/*)
set(list "")
set(contents "")
foreach(file IN LISTS files)
  string(APPEND list "./${file}\n")
  file(SHA256 ${tree}/${file} sum)
  string(APPEND contents "${sum} ${file}\n")
endforeach()
string(UUID product_code NAMESPACE ${upgrade_code} TYPE SHA1 UPPER
  NAME "${CPACK_PACKAGE_VERSION} ${CPACK_QZ_PROCESSOR}")
string(UUID package_code NAMESPACE ${product_code} TYPE SHA1 UPPER NAME "${contents}")

# Files in the installer have the times that they have in the folder.
if(NOT "${CPACK_QZ_SOURCE_DATE_EPOCH}" STREQUAL "")
  set(ENV{TZ} UTC)
  execute_process(COMMAND find ${tree} -exec touch --no-dereference --date @${CPACK_QZ_SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
file(WRITE ${fragment}.txt "${list}")
execute_process(COMMAND wixl-heat --prefix ./ --directory-ref INSTALLDIR --component-group Files
  --var var.Tree --win64 INPUT_FILE ${fragment}.txt OUTPUT_FILE ${fragment} COMMAND_ERROR_IS_FATAL ANY)
# It gives folders random names.
file(READ ${fragment} text)
string(REGEX MATCHALL "\"dir[0-9A-F]+\"" folders "${text}")
set(number 0)
foreach(folder IN LISTS folders)
  math(EXPR number "${number} + 1")
  string(REPLACE ${folder} "\"dir${number}\"" text "${text}")
endforeach()
file(WRITE ${fragment} "${text}")
run(wixl --arch x64 -D Win64=yes -D Tree=. -D Version=${CPACK_PACKAGE_VERSION}
  -D UpgradeCode=${upgrade_code} -D ProductCode=${product_code} --output ${draft}
  ${CMAKE_CURRENT_LIST_DIR}/installer.wxs ${fragment})
file(REMOVE ${fragment} ${fragment}.txt)

# What wixl has no elements for: that another product of the same version, which is that for another
# processor, is replaced as well; the entry in the PATH; and the removal of the logs that the library writes
# beside itself when it is given no other file.
run(msibuild ${draft}
  -q "DELETE FROM Upgrade WHERE ActionProperty='OLDER'"
  -q "INSERT INTO Upgrade (UpgradeCode, VersionMin, VersionMax, Attributes, ActionProperty) VALUES ('{${upgrade_code}}', '0.0.0', '${CPACK_PACKAGE_VERSION}', 768, 'OLDER')"
  -q "UPDATE Property SET Value='OLDER\;NEWER\;INSTALLDIR' WHERE Property='SecureCustomProperties'"
  -q "CREATE TABLE Environment (Environment CHAR(72) NOT NULL, Name CHAR(255) NOT NULL LOCALIZABLE, Value CHAR(255) LOCALIZABLE, Component_ CHAR(72) NOT NULL PRIMARY KEY Environment)"
  -q "INSERT INTO Environment (Environment, Name, Value, Component_) VALUES ('Path', '=-*PATH', '[~]\;[INSTALLDIR]bin', 'Path')"
  -q "INSERT INTO RemoveFile (FileKey, Component_, FileName, DirProperty, InstallMode) VALUES ('Log', 'Path', 'info.txt', 'BINDIR', 2)"
  -q "INSERT INTO RemoveFile (FileKey, Component_, FileName, DirProperty, InstallMode) VALUES ('VirtualLog', 'Path', 'info.txt', 'VIRTUALDIR', 2)"
  -s "QzHidAPI ${CPACK_PACKAGE_VERSION}" "The QzHidAPI authors" "${CPACK_QZ_PROCESSOR}\;1033"
  {${package_code}})
if(NOT "${CPACK_QZ_SOURCE_DATE_EPOCH}" STREQUAL "")
  run(${CMAKE_CURRENT_LIST_DIR}/settle_times.py ${draft} ${CPACK_QZ_SOURCE_DATE_EPOCH})
endif()
file(RENAME ${draft} ${installer})
