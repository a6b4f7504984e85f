# Writes OUTPUT/NAME.tar.gz, the archive of SOURCE's HEAD with every file under
# NAME/, compressed without a time stamp, and OUTPUT/zelcli.hash, its hash and
# the licence's in the form of Buildroot's hash files.
file(MAKE_DIRECTORY ${OUTPUT})
execute_process(
  COMMAND git -C ${SOURCE} archive --format=tar --prefix=${NAME}/ HEAD
  COMMAND gzip -9n
  OUTPUT_FILE ${OUTPUT}/${NAME}.tar.gz COMMAND_ERROR_IS_FATAL ANY)
file(SHA256 ${OUTPUT}/${NAME}.tar.gz archive)
execute_process(COMMAND git -C ${SOURCE} show HEAD:LICENSE OUTPUT_VARIABLE licence
                COMMAND_ERROR_IS_FATAL ANY)
string(SHA256 licence "${licence}")
file(WRITE ${OUTPUT}/zelcli.hash "# Locally calculated
sha256  ${archive}  ${NAME}.tar.gz
sha256  ${licence}  LICENSE
")
message("${OUTPUT}/${NAME}.tar.gz, sha256 ${archive}")
