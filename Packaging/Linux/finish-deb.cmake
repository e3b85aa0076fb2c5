# Run by cpack on the tree that becomes the Debian package: what Debian's policy wants besides, or
# otherwise than `cmake --install` does it.

set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(doc ${tree}/share/doc/quenda)

# Runs a command; a failure ends the packaging.
function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Without what only a debugger reads, the engine included (a given one may be a script).
foreach(program ${tree}/bin/quenda ${tree}/${CPACK_QUENDA_RESOURCE_DIR}/bin/whisper-server)
    if(EXISTS ${program})
        file(READ ${program} magic LIMIT 4 HEX)
        if(magic STREQUAL 7f454c46)
            run(${CPACK_QUENDA_STRIP} --strip-unneeded --remove-section=.comment
                --remove-section=.note ${program})
        endif()
    endif()
endforeach()

# The licence belongs into the file "copyright".
file(REMOVE ${doc}/LICENSE)
file(COPY_FILE ${CPACK_QUENDA_DEBIAN}/copyright ${doc}/copyright)

file(RENAME ${doc}/CHANGELOG.md ${doc}/changelog)
file(COPY_FILE ${CPACK_QUENDA_DEBIAN}/changelog ${doc}/changelog.Debian)
# Without name and time, so that the same sources give the same package.
run(gzip -9 -n -f ${doc}/changelog ${doc}/changelog.Debian ${tree}/share/man/man1/quenda.1)

# Debian's zsh looks for what packages bring in a folder of its own.
set(zsh ${tree}/share/zsh/vendor-completions)
if(NOT "${tree}/${CPACK_QUENDA_ZSH_COMPLETION_DIR}" STREQUAL "${zsh}")
    file(MAKE_DIRECTORY ${zsh})
    file(RENAME ${tree}/${CPACK_QUENDA_ZSH_COMPLETION_DIR}/_quenda ${zsh}/_quenda)
    file(REMOVE_RECURSE ${tree}/${CPACK_QUENDA_ZSH_COMPLETION_DIR})
endif()

file(MAKE_DIRECTORY ${tree}/share/lintian/overrides)
file(COPY_FILE ${CPACK_QUENDA_DEBIAN}/lintian-overrides ${tree}/share/lintian/overrides/quenda)
file(GLOB_RECURSE copied ${doc}/* ${tree}/share/man/* ${tree}/share/lintian/*)
file(CHMOD ${copied} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(CHMOD_RECURSE ${tree} DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
