# Makes the throwaway certificates of the tests, and their keys, in a folder:
#   cmake -DOPENSSL=program -DFOLDER=folder -P Make.cmake
# None of them is of any use elsewhere: an authority that only a test trusts, and a server that does
# not exist. Their dates are fixed, so that a build folder may be of any age.

set(configuration ${CMAKE_CURRENT_LIST_DIR}/openssl.cnf)
set(first_day 20000101000000Z)
set(last_day 20491231235959Z)
set(day_of_expiry 20010101000000Z)

set(workshop ${FOLDER}/workshop)
file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${workshop})
# Where openssl lists what it has signed.
file(WRITE ${workshop}/index.txt "")

function(run_openssl)
    execute_process(
        COMMAND ${OPENSSL} ${ARGN}
        WORKING_DIRECTORY ${workshop}
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${OPENSSL} ${ARGN}: ${result}\n${output}")
    endif()
endfunction()

# RSA, which every TLS library takes.
function(make_key name)
    run_openssl(genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out ${name}.key)
endfunction()

# sign(NAME subject EXTENSIONS section KEY name END date [AUTHORITY name]): without an authority it
# signs itself.
function(sign name)
    cmake_parse_arguments(PARSE_ARGV 1 new "" "SUBJECT;EXTENSIONS;KEY;END;AUTHORITY" "")
    run_openssl(req -config ${configuration} -new -key ${new_KEY}.key -subj /CN=${new_SUBJECT}
        -out ${name}.request)
    if(new_AUTHORITY)
        set(signer -cert ${new_AUTHORITY}.pem -keyfile ${new_AUTHORITY}.key)
    else()
        set(signer -selfsign -keyfile ${new_KEY}.key)
    endif()
    run_openssl(ca -config ${configuration} -batch -notext ${signer} -in ${name}.request
        -extensions ${new_EXTENSIONS} -startdate ${first_day} -enddate ${new_END}
        -out ${name}.pem)
    if(new_AUTHORITY)
        # A server sends the whole chain: under Wine a client has no store of its own to look in
        # for authorities, and finds those alone that it was sent.
        file(READ ${workshop}/${new_AUTHORITY}.pem authority)
        file(APPEND ${workshop}/${name}.pem "${authority}")
    endif()
endfunction()

make_key(authority)
make_key(stranger)
make_key(server)
sign(authority
    SUBJECT "Authority of the tests" EXTENSIONS for_an_authority KEY authority END ${last_day})
sign(stranger
    SUBJECT "Authority that nobody knows" EXTENSIONS for_an_authority KEY stranger END ${last_day})

sign(good
    SUBJECT veyra.test EXTENSIONS for_the_server KEY server AUTHORITY authority END ${last_day})
sign(expired
    SUBJECT veyra.test EXTENSIONS for_the_server KEY server AUTHORITY authority
    END ${day_of_expiry})
sign(another-host
    SUBJECT another.test EXTENSIONS for_another_server KEY server AUTHORITY authority
    END ${last_day})
sign(unknown-authority
    SUBJECT veyra.test EXTENSIONS for_the_server KEY server AUTHORITY stranger END ${last_day})
sign(self-signed
    SUBJECT veyra.test EXTENSIONS for_the_server KEY server END ${last_day})

foreach(product authority.pem good.pem expired.pem another-host.pem unknown-authority.pem
        self-signed.pem server.key)
    file(RENAME ${workshop}/${product} ${FOLDER}/${product})
endforeach()
# With the authorities' keys: nothing more is ever signed by them.
file(REMOVE_RECURSE ${workshop})
