# Completion of eetool for fish. Subcommands, options, registers and stages are what eetool says.

function __eetool_subcommand
    for word in (commandline -opc)[2..-1]
        string match -q -- '-*' $word; and continue
        echo $word
        return 0
    end
    return 1
end

function __eetool_options
    eetool (__eetool_subcommand) --help 2>/dev/null |
        string replace -rf '^ +(?:-.,)?(--[a-z0-9-]+) (?:.*   *)?([^ ].*)$' '$1\t$2'
end

function __eetool_after
    contains -- (commandline -opc)[-1] $argv
end

function __eetool_pipeline
    string match -q -- '*--pipeline classic*' (commandline -pc); and echo classic; or echo pre_ee
end

complete -c eetool -n 'not __eetool_subcommand >/dev/null' -f -l help -d 'Print the subcommands'
complete -c eetool -n 'not __eetool_subcommand >/dev/null' -f -l version -d 'Print version and commit'
complete -c eetool -n 'not __eetool_subcommand >/dev/null' -f -a \
    '(eetool --help 2>/dev/null | string replace -rf "^  ([a-z]+)  +(.*)\$" "\$1\t\$2")'
complete -c eetool -n '__eetool_subcommand >/dev/null; and string match -q -- "-*" (commandline -ct)' -f \
    -a '(__eetool_options)'
complete -c eetool -n '__eetool_after --set' -f -a '(eetool list registers 2>/dev/null |
    string replace -rf "^([^\t]*)\t([^\t]*)\t([^\t]*)\t([^\t]*)\t(.*)\$" "\$1=\t\$3..\$4 [\$2], \$5")'
complete -c eetool -n '__eetool_after --stage' -f -a '(eetool list stages --pipeline (__eetool_pipeline) 2>/dev/null |
    string replace -rf "^([^\t]*)\t.*\t([^\t]*)\$" "\$1\t\$2")'
complete -c eetool -n '__eetool_after --pipeline' -f -a '(eetool list pipelines 2>/dev/null)'
complete -c eetool -n '__eetool_after --format' -f -a 'npy raw hex pgm'
complete -c eetool -n '__eetool_after --log-level' -f -a '0 1 2 3 4 5'
complete -c eetool -n '__eetool_after pattern' -f -a 'checkerboard star noise scene'
complete -c eetool -n '__eetool_after list' -f -a 'registers stages pipelines'
