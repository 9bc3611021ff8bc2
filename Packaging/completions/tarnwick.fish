# fish completion for tarnwick(8)

# The wired cards of this host; `tarnwick list` cuts long names, and shows only those that begin with "en".
function __tarnwick_cards
    if test -d /sys/class/net
        for card in /sys/class/net/*
            if test (cat $card/type 2>/dev/null; or echo 0) = 1; and not test -e $card/wireless
                echo (string replace -r '.*/' '' -- $card)
            end
        end
    else
        tarnwick list 2>/dev/null | awk '/ service: / { print $1 }'
    end
end

set -l serving '__fish_seen_subcommand_from serve'

complete -c tarnwick -f
complete -c tarnwick -n __fish_use_subcommand -a list -d 'Show the wired cards'
complete -c tarnwick -n __fish_use_subcommand -a serve -d 'Serve DHCP on one card'
complete -c tarnwick -n __fish_use_subcommand -l version -d 'Print name and version'
complete -c tarnwick -n $serving -l iface -x -a '(__tarnwick_cards)' -d 'The card to serve'
complete -c tarnwick -n $serving -l server -x -d 'Address of the card and prefix of its subnet'
complete -c tarnwick -n $serving -l range -x -d 'The pool'
complete -c tarnwick -n $serving -l lease -x -a '90s 15m 24h 7d' -d 'How long a device may keep an address'
complete -c tarnwick -n $serving -l router -x -d 'The gateway that devices are told'
complete -c tarnwick -n $serving -l dns -x -d 'The name servers that devices are told'
complete -c tarnwick -n $serving -l leases -r -F -d 'The lease file'
complete -c tarnwick -n $serving -l json -d 'Print JSON lines'
complete -c tarnwick -n $serving -l test-loopback -d 'Serve on 127.0.0.1, without rights'
complete -c tarnwick -n $serving -l port -x -d 'Port of the server in loopback mode'
complete -c tarnwick -n $serving -l client-port -x -d 'Port of the clients in loopback mode'
