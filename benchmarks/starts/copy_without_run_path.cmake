# Copies the program or library FILE into FOLDER as NAME, without the run path of a build tree.
configure_file(${FILE} ${FOLDER}/${NAME} COPYONLY)
file(RPATH_REMOVE FILE ${FOLDER}/${NAME})
