# The community's servers. They are fixed when the launcher is configured and
# nothing reads them at run time, so a launcher cannot be pointed elsewhere by
# a file or a variable on the player's machine.
set(HALDEN_WEB_DOMAIN "tarnwick.example" CACHE STRING
    "The community's web domain, a bare domain name")
set(HALDEN_WEB_HOST "www.tarnwick.example" CACHE STRING
    "Host that serves the information text under /alert (host or host:port)")
set(HALDEN_DOWNLOAD_HOST "download.tarnwick.example" CACHE STRING
    "Host that serves manifests, patch files and launcher files (host or host:port)")
set(HALDEN_MIRROR_HOST "mirror.tarnwick.example" CACHE STRING
    "Host of the unencrypted mirror with the TLS libraries (host or host:port)")
set(HALDEN_DEFAULT_REALM_HOST "logon.tarnwick.example" CACHE STRING
    "Realm server of an entry that names none, a bare host name")

set(_host "[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?")
foreach(variable HALDEN_WEB_DOMAIN HALDEN_DEFAULT_REALM_HOST)
    if(NOT "${${variable}}" MATCHES "^${_host}$")
        message(FATAL_ERROR "${variable} must be a bare host name, not '${${variable}}'")
    endif()
endforeach()
foreach(variable HALDEN_WEB_HOST HALDEN_DOWNLOAD_HOST HALDEN_MIRROR_HOST)
    if(NOT "${${variable}}" MATCHES "^${_host}(:[0-9]+)?$")
        message(FATAL_ERROR "${variable} must be host or host:port, not '${${variable}}'")
    endif()
endforeach()
