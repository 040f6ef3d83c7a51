# What the properties of a DLL or program show on Windows.

if(WIN32)
    enable_language(RC)
endif()

# usage: add_windows_version(TARGET FILE_NAME VFT_DLL|VFT_APP)
function(add_windows_version target file_name file_type)
    if(WIN32)
        set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
        configure_file(${PROJECT_SOURCE_DIR}/packaging/windows/version.rc.in ${resource} @ONLY)
        target_sources(${target} PRIVATE ${resource})
    endif()
endfunction()
