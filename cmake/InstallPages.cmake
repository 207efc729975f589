# Makes the manual page and the completions of what was installed in tarquel_prefix.
set(share ${tarquel_prefix}/share)
foreach(page "manual:man/man1/tarquel-lab.1"
        "completion bash:bash-completion/completions/tarquel-lab"
        "completion zsh:zsh/site-functions/_tarquel-lab"
        "completion fish:fish/vendor_completions.d/tarquel-lab.fish")
    string(REGEX MATCH "^(.*):(.*)$" page "${page}")
    set(file ${share}/${CMAKE_MATCH_2})
    string(REPLACE " " ";" command "${CMAKE_MATCH_1}")
    message(STATUS "Installing: ${file}")
    execute_process(COMMAND ${tarquel_prefix}/bin/tarquel-lab ${command}
        OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    file(WRITE ${file} "${text}")
endforeach()
