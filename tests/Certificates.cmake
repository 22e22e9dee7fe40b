# Makes the certificates of the test server when the tests are configured, so that no key is ever
# committed. They outlive any build tree, and are made again only when they are missing.

find_program(OPENSSL_PROGRAM openssl REQUIRED)

set(TARVISNET_TEST_CERTIFICATES "${CMAKE_CURRENT_BINARY_DIR}/certificates")
file(MAKE_DIRECTORY "${TARVISNET_TEST_CERTIFICATES}")

# ${name}.key and a self-signed ${name}.crt for the common name and the alternative names given.
function(tarvisnet_make_certificate name common_name alternative_names)
    set(key "${TARVISNET_TEST_CERTIFICATES}/${name}.key")
    set(certificate "${TARVISNET_TEST_CERTIFICATES}/${name}.crt")
    if(EXISTS "${key}" AND EXISTS "${certificate}")
        return()
    endif()
    execute_process(
        COMMAND "${OPENSSL_PROGRAM}" req -x509 -newkey rsa:2048 -nodes -days 3650
            -subj "/CN=${common_name}" -addext "subjectAltName=${alternative_names}"
            -keyout "${key}" -out "${certificate}"
        RESULT_VARIABLE result
        OUTPUT_QUIET
        ERROR_VARIABLE errors)
    if(NOT result EQUAL 0)
        file(REMOVE "${key}" "${certificate}")
        message(FATAL_ERROR "openssl could not make the certificate ${name}: ${errors}")
    endif()
endfunction()

tarvisnet_make_certificate(server localhost "IP:127.0.0.1,DNS:localhost")
tarvisnet_make_certificate(wrongname elsewhere.example "DNS:elsewhere.example")
