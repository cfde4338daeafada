# SPDX-License-Identifier: Apache-2.0
# Completion of quorvexvpnctl for fish.

set -l commands status connect disconnect watch keygen check doctor
set -l none "not __fish_seen_subcommand_from $commands"

complete -c quorvexvpnctl -f
complete -c quorvexvpnctl -n $none -a status -d 'What the tunnel does now'
complete -c quorvexvpnctl -n $none -a connect -d 'Start a tunnel from a profile'
complete -c quorvexvpnctl -n $none -a disconnect -d 'Take the tunnel down'
complete -c quorvexvpnctl -n $none -a watch -d 'Show what happens, as it happens'
complete -c quorvexvpnctl -n $none -a keygen -d 'Print a new WireGuard key pair'
complete -c quorvexvpnctl -n $none -a check -d 'Hold a profile to the rules'
complete -c quorvexvpnctl -n $none -a doctor -d 'What is missing on this machine'

complete -c quorvexvpnctl -s j -l json -d 'Answer in JSON'
complete -c quorvexvpnctl -s h -l help -d 'Show a summary'
complete -c quorvexvpnctl -l version -d 'Show the version'
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from status' -l connected -d 'End with 1 when there is no tunnel'
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from connect check' -F
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from connect' -s k -l kill-switch -d 'Let nothing past the tunnel'
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from connect check' -l id -x -d 'The name of the profile'
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from connect check' -s p -l protocol -x -d 'The protocol of the profile' \
    -a 'wireGuard amneziawg openVpn singBox vless vmess trojan shadowsocks hysteria2 tuic dravo xray-reality xray'
complete -c quorvexvpnctl -n '__fish_seen_subcommand_from doctor' -a 'wireguard openvpn sing-box xray'
