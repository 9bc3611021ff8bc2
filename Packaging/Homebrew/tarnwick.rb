class Tarnwick < Formula
  desc "DHCP server for one card of a lab host"
  homepage "https://tarnwick.invalid/"
  license :cannot_represent
  head "https://tarnwick.invalid/tarnwick.git", branch: "main"

  depends_on "asio" => :build
  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "scdoc" => :build
  depends_on "fmt"
  depends_on macos: :ventura
  depends_on "nlohmann-json"

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DTARNWICK_TESTS=OFF", *std_cmake_args
    system "cmake", "--build", "build"
    system "cmake", "--install", "build"
  end

  def caveats
    <<~EOS
      No root is needed: macOS lets everybody bind port 67. The first reply asks for
      Local Network access; allow it to the terminal program.
    EOS
  end

  test do
    assert_match version.to_s, shell_output("#{bin}/tarnwick --version") if build.stable?

    server = free_port
    client = free_port
    log = testpath/"events"
    pid = spawn bin/"tarnwick", "serve", "--test-loopback", "--port", server.to_s, "--client-port", client.to_s,
                "--leases", testpath/"leases.json", "--json", out: log.to_s
    sleep 0.1 until log.read.include?('"event":"started"')
    Process.kill "INT", pid
    Process.wait pid
    assert_equal 0, $CHILD_STATUS.exitstatus
    assert_path_exists testpath/"leases.json"
  end
end
